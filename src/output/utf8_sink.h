// The output stream's sink for the images: UTF-8 with the control-character
// escape, appended to the stream's reused byte buffer.
//
// The output stream could build each token's UTF-16 image and convert it; a
// record of a packet would then be copied once per level of its tree, once
// into the image and once more by the conversion. Instead the renderer
// (content/render.h) hands its pieces to this sink, which escapes and
// encodes them on the way: the bytes are exactly those of do_UTF162UTF8
// over GetImage, with the same failures.
#pragma once

#include <cstddef>

#include "content/escape.h"
#include "xmlstream.h"

// Appends UTF-8 to a growable buffer owned by the caller. A text handed over
// in several pieces (a surrogate pair split between two included) encodes as
// if it were one.
class Utf8Sink {
 public:
  Utf8Sink(char*& buffer, std::size_t& capacity, int escapeControlChars);
  Utf8Sink(const Utf8Sink&) = delete;
  Utf8Sink& operator=(const Utf8Sink&) = delete;

  // ASCII markup, taken as it is.
  void Markup(const char* ascii, std::size_t n);
  void Text(const unsigned short* units, std::size_t n, XmlEscape escape);
  // Raises, as the conversion does, when the text ended on half a pair.
  void Finish();

  const char* Data() const { return m_buffer; }
  std::size_t Size() const { return m_size; }

 private:
  void Reserve(std::size_t more);
  void CompletePair(const unsigned short*& units, std::size_t& n);
  [[noreturn]] static void Unconvertible(int line);

  char*& m_buffer;
  std::size_t& m_capacity;
  std::size_t m_size = 0;
  int m_escapeControlChars;
  // A high surrogate that ended the last piece, waiting for its low half.
  unsigned short m_pendingHigh = 0;
};

