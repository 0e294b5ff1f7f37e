// Streams: reading XML through expat into tokens, writing tokens as UTF-8,
// conversion between UTF-8, UTF-16 and code pages, byte sources.
//
// How to read the comments below: as in xmlcontent.h. "Raises" means throws
// a QmMsgException* (the output stream's full output: an XmlException*);
// the catcher frees it with Delete(). Costs are linear in the bytes or
// units handled unless stated. One stream belongs to one thread at a time.
#pragma once

#include <deque>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "nxcharsets.h"
#include "nxfiles.h"
#include "xmlcontent.h"

// ===========================================================================
// Conversion between UTF-8, UTF-16 and code pages.
//
// XML cannot carry the C0 controls other than TAB, LF and CR, so text is
// written with a control-character escape: U+F800 followed by U+F800 + c for
// a control c, and U+F800 U+F800 for U+F800 itself (U+0000 gives that pair
// too and so reads back as U+F800). The escape may straddle two chunks; the
// caller carries that state in an escape flag (true: the previous chunk
// ended on an unpaired mark). Every buffer a routine returns is allocated
// with new[] and released by the caller with delete[]. Failures are raised
// as QmMsgException, never returned.

// The escape mark in UTF-16.
inline constexpr unsigned short sEscapeInUTF16 = 0xF800;
// The escape mark in UTF-8 (three bytes and a terminating zero).
inline constexpr char sEscapeInUTF8[4] = {'\xEF', '\xA0', '\x80', '\0'};
// A unit c is a C0 control exactly when (c & IsAsciiCCMask) == 0.
inline constexpr unsigned int IsAsciiCCMask = 0xFFFFFFE0u;
// A unit is outside ASCII when it has any of these bits.
inline constexpr unsigned short s_NonAsciiUTF16Mask = 0xFF80;

// Decodes the escaped form of buf[0..len) in place; len becomes the units left.
// Raises the unreachable-code message for a mark followed by a unit no writer makes.
NXXML_API void ConvertXMLSafeCCToAsciiCC(unsigned short* buf, int& len, bool& inEscape);
// UTF-8 to UTF-16 with the escape decoded; numBytes < 0 converts through the terminating zero.
// wide is new[]ed for the caller (null when nothing was converted); raises 27317 on malformed
// UTF-8 when strict, 27316 on non-ASCII under asciiOnly + strict; nothing is handed out on a raise.
NXXML_API void UTF82UTF16(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                          bool throwOnDecodeError, unsigned short*& wide, int& wideStringSize,
                          bool& endsWithEscape);
// A whole zero-terminated UTF-8 string, escape decoded, as one string.
// Raises as UTF82UTF16, and "endedWithEscape == false" for a text ending inside an escape.
NXXML_API Obx_String UTF82CString(const char* data, bool asciiOnly, bool throwOnDecodeError);
// UTF-16 to UTF-8 (buffer of 4 bytes a unit, size without terminator), escaping when asked.
// utf8Chars is new[]ed for the caller; raises "wideCharsSize > 0", "U_SUCCESS(uerr)" (an unpaired surrogate).
NXXML_API void do_UTF162UTF8(const unsigned short* wideChars, int wideCharsSize, char*& utf8Chars,
                             int& utf8Size, int escapeControlChars);

// Bytes of the locale's code page to UTF-8; dataSize < 0 converts through the terminating zero.
// utf8Chars is new[]ed for the caller; raises 27317 on bytes the code page cannot decode.
NXXML_API void ACP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size,
                        int escapeControlChars);
// A zero-terminated text of the locale's code page to zero-terminated UTF-8.
NXXML_API void ACP2UTF8(const char* data, char*& utf8Chars, int escapeControlChars);
// Bytes of a numbered code page to UTF-8; dataSize < 0 converts through the terminating zero.
NXXML_API void CP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size,
                       unsigned int codePage, int escapeControlChars);
// A zero-terminated text of a numbered code page to zero-terminated UTF-8.
NXXML_API void CP2UTF8(const char* data, char*& utf8Chars, unsigned int codePage, int escapeControlChars);
// A UTF-8 chunk, escape decoded, to ASCII (asciiOnly) or the locale's code page.
// encodedChars is new[]ed for the caller; raises 27317, 27316, or 27315 for text the code page cannot hold.
NXXML_API void UTF82ACP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                        bool throwOnDecodeError, char*& encodedChars, int& encodedDataSize,
                        bool& endsWithEscape);
// A whole zero-terminated UTF-8 string to ASCII or the locale's code page; returns the size with the zero.
NXXML_API int UTF82ACP(const char* data, bool asciiOnly, bool throwOnDecodeError, char*& encodedChars);
// A UTF-8 chunk, escape decoded, to ASCII (asciiOnly) or code page acp.
NXXML_API void UTF82CP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                       bool throwOnDecodeError, char*& encodedChars, int& encodedDataSize,
                       bool& endsWithEscape, unsigned int acp);
// End of the conversion section.
// ===========================================================================

// ===========================================================================
// Byte sources.

// Where the input stream's bytes come from. A source can also say where the
// parser reading it stands, and render such a place as text.
// Subclass it to read from anything; the input stream that takes it owns and deletes it.
class NXXML_API IXmlStreamSource {
 public:
  IXmlStreamSource() = default;
  IXmlStreamSource(const IXmlStreamSource&) = delete;
  IXmlStreamSource& operator=(const IXmlStreamSource&) = delete;

  // True when no more bytes will come.
  virtual bool eof() = 0;
  // Fills up to n bytes; returns the number delivered (0 at the end).
  // An implementation raises (any exception) on a failed read; the stream passes it on.
  virtual long read(char* buf, long n) = 0;
  virtual ~IXmlStreamSource();
  // The parser's current place, rendered through this source's own
  // StoreSourceLocation and RenderSourceLocation.
  virtual Obx_String RenderCurrentLocation() const;
  // Stores the parser's current line, column and byte index; unset when no
  // parser is attached.
  virtual void StoreSourceLocation(XmlSourceLocation& loc) const;
  // A place of this source as text for a message.
  virtual Obx_String RenderSourceLocation(const XmlSourceLocation& loc) const;
  // The expat parser that reads this source (not owned).
  virtual void SetXmlParser(void* parser) { m_parser = parser; }
  // The expat parser set by SetXmlParser, borrowed.
  void* GetXmlParser() const { return m_parser; }

 protected:
  void* m_parser = nullptr;
};

// Reads a caller's file stream, which must outlive the source.
class NXXML_API IXmlStreamFileSource : public IXmlStreamSource {
 public:
  // A read that fails (not the end of the file) raises 27323 with the reason.
  explicit IXmlStreamFileSource(std::ifstream& in) : m_stream(&in) {}
  bool eof() override;
  long read(char* buf, long n) override;

 private:
  std::ifstream* m_stream;
};

// Reads a caller's string stream, which must outlive the source.
class NXXML_API IXmlStreamStringSource : public IXmlStreamSource {
 public:
  explicit IXmlStreamStringSource(std::istringstream& in) : m_stream(&in) {}
  bool eof() override;
  long read(char* buf, long n) override;

 private:
  std::istringstream* m_stream;
};

// Reads a list of files one after the other as one input. A read never
// mixes bytes of two files; locations name the file (its index in the list)
// and count lines and bytes from the start of the first file.
class NXXML_API IXmlStreamMultiFileSource : public IXmlStreamSource {
 public:
  // Copies the names; files are opened one by one as reading reaches them (one that cannot be opened raises 27309 then).
  explicit IXmlStreamMultiFileSource(CStringArray& fileNames);
  // The same with UTF-8 names; raises 27317 on a malformed one.
  explicit IXmlStreamMultiFileSource(const std::vector<std::string>& fileNames);
  ~IXmlStreamMultiFileSource() override;
  bool eof() override;
  long read(char* buf, long n) override;
  // The place with the index of the file it lies in.
  void StoreSourceLocation(XmlSourceLocation& loc) const override;
  Obx_String RenderSourceLocation(const XmlSourceLocation& loc) const override;
  // One raw step: reads the open file, or opens the next one.
  virtual long readInternal(char* buf, long n);

 private:
  CStringArray m_fileNames;
  int m_filesOpened = 0;
  std::ifstream* m_currentFile = nullptr;
  int m_lineBase = 0;
  int m_columnBase = 0;
  int m_byteBase = 0;
};

// A new string source over in; the caller owns the result.
// The source borrows in, which must outlive it.
NXXML_API IXmlStreamSource* XmlStringSourceFactory(std::istringstream& in);

// ===========================================================================
// The input stream.

// The error token: its text is the complete report of a parse or decoding
// error, raised when a reader reaches it.
class NXXML_API XmlError : public XmlCharData {
 public:
  // Made by the input stream only; readers meet it as a raised message.
  explicit XmlError(const Obx_String& text) : XmlCharData(text) {}
  XmlToken_t GetType() const override { return XT_ILLEGAL; }
};

// Reads XML from a byte source through expat, lazily: a read operation
// parses only as many chunks as it needs. Errors become error tokens at
// their place in document order and are raised when a reader reaches them.
class NXXML_API IXmlStream {
 public:
  // How deep elements may nest before the stream refuses the input. Deep
  // enough for any real packet, shallow enough that reading, copying,
  // rendering and freeing such a tree stay far from the stack's end.
  enum { DEFAULT_MAX_ELEMENT_DEPTH = 1000 };
  // The largest token the stream accepts, in bytes of input: a longer tag
  // (a start tag counts whole, with its attributes), text, or unfinished
  // markup raises message 27324 at its place and ends the parse. It keeps a
  // hostile packet from costing more memory than a few times this size.
  enum : long long { DEFAULT_MAX_TOKEN_SIZE = 256LL << 20 };

  // Each takes the two decoding flags: asciiOnly rejects non-ASCII text
  // (with strict decoding); lenientDecoding substitutes malformed UTF-8
  // instead of making it an error.
  IXmlStream(IXmlStreamSource* source, bool asciiOnly = false, bool lenientDecoding = false);  // takes ownership
  // The stream borrows in (and the ifstream below), which must outlive it.
  IXmlStream(std::istringstream& in, bool asciiOnly = false, bool lenientDecoding = false);
  IXmlStream(std::ifstream& in, bool asciiOnly = false, bool lenientDecoding = false);
  // The names are copied; a file that cannot be opened raises 27309 when reading reaches it.
  IXmlStream(CStringArray& fileNames, bool asciiOnly = false, bool lenientDecoding = false);
  // The files of a list read as one input, named in UTF-8 (27317 on a
  // malformed name).
  IXmlStream(const std::vector<std::string>& fileNames, bool asciiOnly = false, bool lenientDecoding = false);
  // Close(): frees the parser, the converter, the source and the queued tokens.
  virtual ~IXmlStream();
  IXmlStream(const IXmlStream&) = delete;
  IXmlStream& operator=(const IXmlStream&) = delete;

  // Where the parser stands, as text for a message.
  virtual Obx_String RenderCurrentLocation() const;
  // A token's place (its GetLocation()) as text for a message.
  virtual Obx_String RenderSourceLocation(const XmlSourceLocation& loc) const;

  // Makes the expat parser; the constructors call it.
  void BuildParser();
  // Fills the queue with at least one token reading one byte at a time, so
  // that no more input is consumed than the first token needs.
  int Parse_First();
  // Fills the queue as the readers need; true when it holds a token.
  int Parse_More();
  // Driver steps the readers use; an application calls the readers instead.
  int FillTokenBuffer(char* buf, unsigned int bufSize, int accumulate);
  void ReadAndParse(char* buf, unsigned int bufSize);

  // Removes and returns the head token, character data whole; null at the
  // end of the input. The caller owns the token (delete it, or hand it to
  // an NXSmartPtr).
  // Parses as needed (a failing source raises); an error token is handed out like any other.
  XmlToken* GetNextToken();
  // Removes and frees the head token; 0 when none was left.
  // Raises what the parse of more input raises.
  int SkipToken();
  // Puts a token at the head of the queue; the stream owns it from then on,
  // except a start tag already converted (one read from a stream): the
  // start-tag reader takes that off the queue without freeing it, so it
  // stays the caller's to delete once read.
  void PushXmlToken(XmlToken* token);
  // True when no token is left. An empty input is simply at its end.
  bool End();
  // Tells expat that the input has ended, after the last token the reader
  // wants. Reads what is left of the source first, then queues what only
  // the end reveals: text expat held back, then an error token for an
  // unfinished token, half a character, or elements left open (27325); in
  // embedded mode this is the closing step. Raises that error at once when
  // no token comes before it; returns true when tokens are left to read
  // (the reader reads them as before, meeting the error in its place).
  // Further calls only answer whether tokens are left.
  bool Finish();
  // Frees the parser, the converter, the source and every queued token.
  void Close();
  // Replaces (and owns) the converter; null installs a default one.
  // The stream deletes the previous converter.
  void SetConverter(XmlConverter* converter);
  // The converter in use, borrowed.
  XmlConverter* GetConverter() const { return m_converter; }

  // The head token's type, XT_EOF at the end of the input.
  // Raises the queued error when the head token is one; parses only as far as needed.
  XmlToken_t GetNextTokenType();
  // The same; a start tag at the head is also copied into tag.
  XmlToken_t GetNextTokenType(XmlSTag& tag);
  // True and the name when the head token is a start or end tag.
  // Raises as GetNextTokenType.
  bool GetNextTokenName(Obx_String& name);
  // The same with the name in UTF-8.
  bool GetNextTokenName(std::string& name);
  // Reads the text at the head as it stands (possibly a piece of a longer
  // run); 0 at the end of the input.
  // Raises 27301 when the head is not character data, or the queued error.
  int GetCharDataUnaccumulated(XmlCharData& text);
  // Skips the element (or the text) at the head.
  // Linear in the tokens skipped; raises a queued error it meets.
  void SkipElement();
  // On before the first read: the source may hold any number of top-level
  // elements. Off after the last one.
  void SetEmbeddedElementMode(int on);

  // The deepest element nesting the stream accepts; deeper input raises
  // message 27322 at the start tag that goes too deep.
  // Set before the first read.
  void SetMaxElementDepth(int depth) { m_maxElementDepth = depth; }
  int GetMaxElementDepth() const { return m_maxElementDepth; }
  // The largest token the stream accepts (see DEFAULT_MAX_TOKEN_SIZE).
  void SetMaxTokenSize(long long size) { m_maxTokenSize = size; }
  long long GetMaxTokenSize() const { return m_maxTokenSize; }

 private:
  friend class XmlHelper;
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlETag& tag);

  void Init(IXmlStreamSource* source, bool asciiOnly, bool lenientDecoding);
  XmlToken* Head() const { return m_tokens.front(); }
  void PopHead() { m_tokens.pop_front(); }
  // Parses bytes, keeping C++ exceptions out of expat's frames: a handler's
  // exception stops the parser and is rethrown here once expat returned.
  int ParseBytes(const char* data, int length, int isFinal);
  void RethrowPending();
  // Turns expat's failure into an error token at the tail of the queue;
  // buf and n are the failing chunk, start the index of its first byte.
  void QueueParseError(const char* buf, int n, long long start);
  // At the end of the input, has expat parse what it held back.
  void FlushHeldBack();
  // Embedded mode's closing step as Finish takes it.
  void CloseEmbedded();
  // Refuses an unfinished token that has grown past the size limit.
  void CheckHeldBack();
  // Queues message id with "%_ARG1_%" arg and the location (the current
  // one when null) as an error token, and ends the parse: nothing after it
  // is read.
  void RefuseAndStop(long id, long long arg, const XmlSourceLocation* at = nullptr);

  XmlConverter* m_converter = nullptr;
  void* m_parser = nullptr;  // the expat parser
  std::deque<XmlToken*> m_tokens;
  int m_accumulate = 0;
  IXmlStreamSource* m_source = nullptr;
  int m_newlineStripped = 0;
  bool m_lastCharDataEndedWithEscape = false;
  bool m_asciiOnly = false;
  bool m_lenientDecoding = false;
  int m_depth = 0;
  int m_maxElementDepth = DEFAULT_MAX_ELEMENT_DEPTH;
  // Set once the parse was stopped for good (a handler raised, or the input
  // went too deep); no further byte is read.
  bool m_parseStopped = false;
  bool m_heldBackFlushed = false;
  std::exception_ptr m_pending;
  // Bytes given to expat so far: the index of the next chunk's first byte.
  long long m_bytesParsed = 0;
  long long m_maxTokenSize = DEFAULT_MAX_TOKEN_SIZE;
  // The index just past the last event expat reported: what lies between
  // it and m_bytesParsed is held back as an unfinished token.
  long long m_consumed = 0;
  // Bytes of the text token at the tail of the queue, summed over pieces.
  long long m_tailTextBytes = 0;
  // Whether the artificial root of embedded mode is open.
  bool m_embedded = false;
  // Set once expat was told that the input has ended.
  bool m_finished = false;
};

// Extraction. Each reads the head token, checks its type (and its name when
// the target was named with operator()), and raises the queued error, a type
// mismatch or a name mismatch as a QmMsgException* with the location.
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlETag& tag);
// The next character data, whole.
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlCharData& text);
// A whole element with its subtree; one cut off by the end of the input is
// returned as far as it was read.
// Linear in the element's input; raises 27305-27307 for mismatched names, and the queued error.
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlElement& element);

// ===========================================================================
// The output stream.
//
// Writes text, tokens and element trees as UTF-8 (control characters in the
// escaped form above) to a caller's stream, to memory, or to a series of
// files N, N_2, N_3... each cut at a byte limit. Every byte passes
// write_internal, which enforces the limit. Failures are raised as
// QmMsgException*; a limit that leaves no room and no file to roll over to
// raises XmlException*.

// Raised by the output stream, by pointer, when the output is full: the limit
// of an in-memory or caller's stream, or of the last file allowed, was
// reached. The part that fitted has been written. Free it with Delete().
class NXXML_API XmlException : public CException {
 public:
  XmlException() : CException(true) {}
  ~XmlException() override;
};

// Writes UTF-8; see the constructors for what it owns.
class NXXML_API OXmlStream {
 public:
  // Writes to a caller's stream, which must outlive this one. maxSize > 0
  // limits the bytes written; beyond it XmlException is raised.
  // The stream borrows os.
  OXmlStream(std::ostream& os, long long maxSize);
  // The same; Str() returns the string stream's contents.
  OXmlStream(std::ostringstream& os, long long maxSize);
  // Writes to a caller's open file, which Close() closes but never deletes;
  // raises 27303 when the file is not good.
  OXmlStream(std::ofstream& os, long long maxSize);
  // Writes to memory; Str() and GetBlob() hand the bytes out.
  explicit OXmlStream(long long maxSize);
  // Writes the files fileName, fileName_2, ... of at most maxSize bytes each
  // (maxSize <= 0: one file, no limit), at most maxFiles of them (0: no
  // limit). Raises 27304 when the first file cannot be opened.
  // The stream owns the files it opens; they stay on disk after it dies.
  OXmlStream(const unsigned short* fileName, long long maxSize, int maxFiles);
  // The same with a UTF-8 file name; raises 27317 when it is malformed.
  OXmlStream(std::string_view fileName, long long maxSize, int maxFiles);
  // Close()s and deletes an owned converter.
  virtual ~OXmlStream();
  OXmlStream(const OXmlStream&) = delete;
  OXmlStream& operator=(const OXmlStream&) = delete;

  // Writes n raw UTF-8 bytes.
  // Raises XmlException* when the output is full, 27320 when a file write fails.
  void write(const char* bytes, long n);
  // Writes n UTF-16 units as UTF-8 (n < 1: up to the terminating zero).
  // Raises "wideChars != __null" for null text, and as write above.
  void write(const unsigned short* wideChars, long n);
  // Writes as much of the bytes as the limit allows, rolling over to the
  // next file of a series; raises XmlException when nothing can take the rest.
  void write_internal(const char* bytes, long n);
  // Writes to the current stream, unlimited; a failed file write counts in
  // GetWriteErrors() and raises 27320.
  void do_write(const char* bytes, long n);

  // Closes the stream (string-backed streams only note it) and returns the
  // bytes written to memory or to a caller's string stream; empty otherwise.
  std::string Str();
  // Str() into blob, up to the first zero byte.
  void GetBlob(NxBlob& blob);
  // Installs the converter handed to every image; null installs a default
  // one. The stream deletes it when owns is set.
  void SetConverter(XmlConverter* converter, int owns);
  // The converter in use; null until SetConverter.
  XmlConverter* GetConverter() const { return m_converter; }
  // 1 for memory and caller's (string) streams, 0 for file output.
  int GetIsStrstream() const { return m_isStrstream; }
  // 1 when a file series went past its limits because overflow was allowed.
  int Overflowed() const;
  // Ends the current file (flushed, closed; a series' file is released), or
  // marks a string-backed stream closed, which it can still be written to.
  void Close();

  // Lists the files of the series in order; returns their total size in bytes.
  // Linear in the files (each one is opened to take its length).
  double Get_Created_Files(CStringArray& files);
  // Removes the files of the series from the last down to the first keep
  // ones; call Close() first.
  // A file that cannot be removed is passed over silently.
  void Delete_Created_Files(unsigned int keep);

  // With overflow allowed, a series that runs out of files goes on past its
  // limits instead of raising XmlException.
  void SetAllowOverflow(int allow) { m_allowOverflow = allow ? 1 : 0; }
  int GetAllowOverflow() const { return m_allowOverflow; }
  // Whether UTF-16 text is written with the control-character escape (on by
  // default).
  void SetEscapeControlChars(int escape) { m_escapeControlChars = escape ? 1 : 0; }
  int GetEscapeControlChars() const { return m_escapeControlChars; }
  // 1 once Close() was called on a string-backed stream.
  int IsClosed() const { return m_closed; }
  // The number of writes to a file that failed.
  int GetWriteErrors() const { return m_writeErrors; }

 private:
  friend class OXmlStreamHelper;
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, long value);

  void Init(std::ostream* stream, int isStrstream, long long maxSize);
  // Renders the token's image straight into the byte buffer, then writes
  // it whole, so that a token that fails to render writes nothing.
  void WriteImage(const XmlToken& token, int how);
  [[noreturn]] void RaiseWriteError();

  std::ostream* m_ownedStream = nullptr;
  std::ostream* m_stream = nullptr;
  int m_isStrstream = 1;
  std::ostringstream* m_strstream = nullptr;
  std::ofstream* m_fileStream = nullptr;
  XmlConverter* m_converter = nullptr;
  int m_ownsConverter = 1;
  Obx_String m_fileName;
  long long m_maxSize = 0;
  unsigned int m_maxFiles = 1;
  unsigned int m_fileCount = 0;
  long long m_bytesWritten = 0;
  int m_allowOverflow = 0;
  int m_closed = 0;
  int m_writeErrors = 0;
  int m_escapeControlChars = 1;
  // The UTF-8 of the item being written, reused from one write to the next.
  char* m_buffer = nullptr;
  std::size_t m_bufferCapacity = 0;
};

// Writes a zero-terminated UTF-16 text.
// Raises as OXmlStream::write; the text is not escaped as markup.
NXXML_API OXmlStream& operator<<(OXmlStream& out, const unsigned short* text);
inline OXmlStream& operator<<(OXmlStream& out, const char16_t* text) {
  return out << reinterpret_cast<const unsigned short*>(text);
}
// Writes a UTF-8 text as the UTF-16 form does (checked strictly: 27317 on
// malformed bytes, nothing written); it is not escaped as markup.
NXXML_API OXmlStream& operator<<(OXmlStream& out, std::string_view text);
// Writes the decimal digits straight to the byte stream: they are neither
// counted nor limited, and never start a new file.
NXXML_API OXmlStream& operator<<(OXmlStream& out, long value);
// Writes the token's image (its virtual GetImage).
// Raises what the image raises (nothing is written then) and what write raises; linear in the image.
NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlToken& token);
NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlElement& element);
NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlCharData& text);
// Writes the end tag's image.
NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlETag& tag);
// Writes the start tag closed by ">", never as an empty-element tag.
NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlSTag& tag);
// Appends everything written to the string-backed stream rhs (up to its first
// zero byte), closing rhs.
// Raises "&lhs != &rhs" for itself and "rhs.GetIsStrstream()" for a file-backed rhs.
NXXML_API OXmlStream& operator<<(OXmlStream& lhs, OXmlStream& rhs);
// Copies the input's next token to out; at the end of the input writes
// nothing. A queued error is raised instead of written.
// Linear in the token; raises the queued error or what the output raises.
NXXML_API IXmlStream& operator>>(IXmlStream& in, OXmlStream& out);
// End of the output section.
// ===========================================================================
