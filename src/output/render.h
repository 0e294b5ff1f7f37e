// Rendering of the content model's images straight to UTF-8.
//
// The output stream could build each token's UTF-16 image, escape it and
// convert it; a record of a packet would then be copied once per level of
// its tree, once into the image and once more by the conversion. Instead the
// parts of the image go straight into one reused byte buffer, escaped and
// encoded on the way. The bytes are exactly those of do_UTF162UTF8 over
// GetImage, with the same assertions, and the same converter calls in the
// same order.
#pragma once

#include <cstddef>

#include "xmlstream.h"

// Appends UTF-8 to a growable buffer owned by the caller. A text handed over
// in several pieces (a surrogate pair split between two included) encodes as
// if it were one.
class Utf8Sink {
 public:
  enum Escape {
    RAW,        // units as they are (names, ready images)
    CHARDATA,   // & < > and tab, line feed, carriage return as references
    ATTRIBUTE,  // those and both quotation marks
  };

  Utf8Sink(char*& buffer, std::size_t& capacity, int escapeControlChars);
  Utf8Sink(const Utf8Sink&) = delete;
  Utf8Sink& operator=(const Utf8Sink&) = delete;

  // ASCII markup, taken as it is.
  void Markup(const char* ascii, std::size_t n);
  void Text(const unsigned short* units, std::size_t n, Escape escape);
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

// Renders tokens into a sink, as their GetImage would with converter c.
class ImageRender {
 public:
  enum Image {
    VIRTUAL,    // what the token's virtual GetImage gives
    END_TAG,    // XmlETag::GetImage
    START_TAG,  // XmlSTag::GetImage(">", c)
  };

  ImageRender(Utf8Sink& sink, XmlConverter* converter) : m_sink(sink), m_converter(converter) {}
  void Token(const XmlToken& token, Image image);

 private:
  void STag(const XmlSTag& tag, const char* terminator, std::size_t terminatorLength);
  void ETag(const XmlETag& tag);
  void CharData(const XmlCharData& text);
  void Element(const XmlElement& element);
  // A type whose image this renderer does not know: its own GetImage.
  void Other(const XmlToken& token);
  // A name from the converter (or the tag itself), zero-terminated.
  void Name(const unsigned short* name);

  Utf8Sink& m_sink;
  XmlConverter* m_converter;
};

// The output stream's private parts for its operators.
class OXmlStreamHelper {
 public:
  static void WriteImage(OXmlStream& out, const XmlToken& token, ImageRender::Image image) {
    out.WriteImage(token, image);
  }
};
