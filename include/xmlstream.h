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
#include <memory>
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

// ---------------------------------------------------------------------------
// Look-ahead: bytes taken one at a time or a line at a time, and put back
// in front of the input for the next reader (typically the input stream).

class NXXML_API IXmlBufferedStreamSource : public IXmlStreamSource {
 public:
  // Takes ownership of source (not null, not this object); on a raise it
  // is left to the caller.
  explicit IXmlBufferedStreamSource(IXmlStreamSource* source);
  ~IXmlBufferedStreamSource() override;
  // False while pushed-back bytes are unread.
  bool eof() override;
  // Pushed-back bytes first, then the wrapped source's.
  long read(char* buf, long n) override;
  // Locations are the wrapped source's.
  void StoreSourceLocation(XmlSourceLocation& loc) const override;
  void SetXmlParser(void* parser) override;

  // The next byte (bytes above 127 come back negative); 0 at the end.
  char NextByte();
  // The next line as text, without its line feed; ASCII only.
  Obx_String NextLine();
  // Puts n bytes in front of the unread ones, in their order.
  void PushBack(char* bytes, long n);
  // Un-reads the last byte taken from the push-back buffer.
  void PushBackByte();

  // The smallest size the push-back buffer is first allocated with.
  static constexpr long s_BufferSizeIncr = 500;

 protected:
  std::unique_ptr<IXmlStreamSource> m_Source;
  int m_BufCount = 0;  // pushed-back bytes not yet read
  int m_BufPtr = 0;    // index of the next unread byte
  int m_BufSize = 0;   // allocated size of m_Buf
  std::unique_ptr<char[]> m_Buf;
};

// ---------------------------------------------------------------------------
// Repairing sources: packets of older versions of the application are not
// well-formed XML. A repairing source reads such a packet (the dirty
// stream) through a small look-ahead buffer, lets acceptable bytes pass in
// runs and hands every other byte to its format's repair step, so that
// expat sees well-formed UTF-8. A packet that breaks its format's rules is
// not guessed at: the read stops with the exception of the broken rule,
// carrying a second message with the place in the packet (27326). Bytes
// repaired before the failure are delivered first; the failure is raised by
// the read that would have gone past it.

// Packet formats, by the version of the application that wrote them.
enum AdRelayPacketVersion_t {
  eRelayPacketVersionOM = 2,       // code-page bytes as decimal references
  eRelayPacketVersionOMSR1 = 3,    // raw control characters, hexadecimal references
  eRelayPacketVersionFormat4 = 4,  // UTF-8 with controls as U+F801..U+F81F
  eRelayPacketVersionCurrent = 5,  // this and every later version: no repair
};

// The look-ahead buffer of a repairing source: DEFAULTBUFSIZE usable bytes
// and a zero always written after the data, so that the data can be read
// by routines that stop at a zero.
class NXXML_API ByteBuffer {
 public:
  explicit ByteBuffer(long size);
  ~ByteBuffer();
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;

  // Moves the data to the start and tops it up from source; returns the
  // number of bytes added.
  long FillBuffer(IXmlStreamSource* source);
  long DataSize() const { return static_cast<long>(m_pDataEnd - m_pDataStart); }
  const char* Data() const { return m_pDataStart; }
  // The first unconsumed byte; there must be one.
  unsigned char CurrentByte() const;
  // The byte offset bytes into the data; it must be there.
  unsigned char ByteAt(long offset) const;
  // Drops the first n bytes of the data (0 < n <= DataSize()).
  void ConsumeBytes(long n);

 private:
  char* m_pBufStart;   // the storage (owned), one byte longer than usable
  char* m_pBufEnd;     // end of the usable storage
  char* m_pDataStart;  // first unconsumed byte
  char* m_pDataEnd;    // one past the last byte read
};

// The shared machinery of the repairing sources; each format supplies its
// pass-through table and its repair step.
class NXXML_API IXmlCleanStreamSource : public IXmlStreamSource {
 public:
  // Takes ownership of pDirty (not null).
  explicit IXmlCleanStreamSource(IXmlStreamSource* pDirty);
  ~IXmlCleanStreamSource() override;
  // False while repaired bytes are pending or the buffer holds data.
  bool eof() override;
  long read(char* pOutput, long bytes) override;
  // Locations are the dirty stream's (the parser reads that).
  void StoreSourceLocation(XmlSourceLocation& loc) const override;
  void SetXmlParser(void* parser) override;
  // The format's repair step: consumes the byte at the buffer's start
  // (and possibly more) and leaves the repaired bytes pending.
  virtual void GetUtf8FromSource() = 0;

  static constexpr long DEFAULTBUFSIZE = 128;  // usable bytes of the look-ahead buffer
  // The buffer is topped up to at least this before a repair step: the
  // longest look-ahead one may need (16 references of 6 bytes).
  static constexpr long MINBUFSIZE = 96;
  static constexpr long LIMIT = 256;  // entries of every byte-value table
  // The bytes a well-formed packet writes as references (TAB, LF, CR, ",
  // &, ', <, >): their references are left as they are.
  static std::vector<bool> s_xmlByteCharsToEscape;

 protected:
  // Copies the leading run of pass-through bytes; returns its length.
  long CopyNormal(char* pOutput, long outputBytes);
  // The numeric reference ("&#" digits ";" or "&#x" hex digits ";") offset
  // bytes into the data: its length, or 0 when there is none (or its value
  // is above 255).
  long ParseNumericCharRef(long offset, unsigned char& value, bool& isHex);
  // Whether the data starts with str (at most MINBUFSIZE bytes).
  bool LookingAt(const char* str);
  // Passes the current byte on unchanged.
  void OutputCurrentByte();
  // Converts count bytes of the locale's code page to pending UTF-8 (with
  // the control-character escape) and consumes bytesToConsume input bytes.
  void ACP2UTF8(char* bytes, int count, int bytesToConsume);
  // Consumes n bytes of the buffer, keeping the place in the packet.
  void Consume(long n);

  std::unique_ptr<IXmlStreamSource> m_pDirtyStream;
  std::unique_ptr<ByteBuffer> m_buffer;
  const std::vector<bool>* m_passThrough = nullptr;  // true: the byte passes unchanged
  int m_utf8CharSize = 0;   // pending repaired bytes
  int m_utf8CharIndex = 0;  // the next pending byte to deliver
  char m_utf8Char[8];       // the repaired bytes of one repair step

 private:
  // The repair step, with the place in the packet added to its failure.
  void Repair();
  // Hands out a failure kept from the previous read.
  void RaiseDeferred();

  // A failure met after bytes were delivered: raised by the next read.
  QmMsgException* m_deferred = nullptr;
  // The place in the packet of the buffer's first byte.
  long long m_line = 1;
  long long m_column = 0;
  long long m_byteIndex = 0;
  // The last code-page conversion, reused while the same bytes repeat.
  struct ConversionCache;
  std::unique_ptr<ConversionCache> m_cache;
};

// The OM format: every byte of a code-page character above ASCII, and the
// eight special bytes, written as decimal references of the byte. The bytes
// of a character are joined again (mblen in the process's locale) and
// converted from the locale's code page.
class NXXML_API IXmlCleanStreamSourceOM : public IXmlCleanStreamSource {
 public:
  explicit IXmlCleanStreamSourceOM(IXmlStreamSource* pDirty);
  ~IXmlCleanStreamSourceOM() override;
  void GetUtf8FromSource() override;
  // Whether the reference offset bytes into the data is a code-page byte to
  // convert (false: a special byte, left as it is).
  bool NeedOMDecimalNCR(long offset, unsigned char& value, long& length);

  static std::vector<bool> s_passThroughInOM;
};

// The OMSR1 format: UTF-8 text with raw control characters and the special
// bytes as hexadecimal references or named entities. Controls are converted
// to the escaped form; every "&" is checked.
class NXXML_API IXmlCleanStreamSourceOMSR1 : public IXmlCleanStreamSource {
 public:
  explicit IXmlCleanStreamSourceOMSR1(IXmlStreamSource* pDirty);
  ~IXmlCleanStreamSourceOMSR1() override;
  void GetUtf8FromSource() override;

  static std::vector<bool> s_passThroughInOMSR1;
};

// Format 4: UTF-8 with a control character c written as U+F800 + c and
// U+F800 as itself; the escape mark is put in front of each.
class NXXML_API IXmlCleanStreamSourceFmt4 : public IXmlCleanStreamSource {
 public:
  explicit IXmlCleanStreamSourceFmt4(IXmlStreamSource* pDirty);
  ~IXmlCleanStreamSourceFmt4() override;
  void GetUtf8FromSource() override;

  static std::vector<bool> s_passThroughInFmt4;
};

// One character of UTF-8 decoded by the safe rules repairing has always
// used: s[i] a lead byte, i moved past what was read. An illegal, overlong,
// surrogate or out-of-range sequence gives a negative value with i moved
// past the trail bytes that are there, so that expat judges them.
NXXML_API int XmlDecodeUtf8Safe(const unsigned char* s, int& i, int length);

// ---------------------------------------------------------------------------
// Format detection.

// What the bytes of a packet of unknown format look like.
enum DetectType_t {
  eDetectedTypePlain = 0,      // ASCII text, no character reference: nothing to repair
  eDetectedTypeAmbiguous = 1,  // ASCII and well-formed UTF-8: UTF-8 or code-page text
  eDetectedTypeInvalid = 2,    // contradictory or broken signs
  eDetectedTypeOM = 3,         // decimal references of bytes, bytes above 127 not UTF-8
  eDetectedTypeSR1 = 4,        // hexadecimal references, named entities, raw controls
};

// Holds a whole packet in memory, classifies it, and then serves its bytes.
class NXXML_API IXmlDetectStreamSource : public IXmlStreamSource {
 public:
  // Takes ownership of source. codepage >= 0 asks for the hidden-corruption
  // check against that code page.
  IXmlDetectStreamSource(IXmlStreamSource* source, long codepage);
  ~IXmlDetectStreamSource() override;
  bool eof() override;
  long read(char* buf, long n) override;
  void StoreSourceLocation(XmlSourceLocation& loc) const override;
  void SetXmlParser(void* parser) override;

  // Reads the whole packet, at most maxBytes; raises "m_source->eof()" for
  // a longer one.
  void Load(long maxBytes);
  // Scans the packet and sets the type (and the flags).
  void DetectType();
  // At "&": how far the scan moves on, having judged the reference.
  long ParseCharacterReference();
  // Whether the packet's non-plain bytes convert with the code page at all.
  void SearchForHiddenCorruption();

  DetectType_t GetType() const { return m_type; }
  int GetNonAscii() const { return m_nonAscii; }
  int GetCorrupt() const { return m_corrupt; }
  bool HasCodepage() const { return m_codepage != nullptr; }

 private:
  // Releases the packet's memory, mapped from the system.
  struct FreeDeleter {
    explicit FreeDeleter(std::size_t n = 0) : size(n) {}
    void operator()(char* p) const;
    std::size_t size;
  };
  std::unique_ptr<IXmlStreamSource> m_source;
  const char* m_readPosition = nullptr;
  std::unique_ptr<char, FreeDeleter> m_data;
  const char* m_current_byte = nullptr;
  const char* m_dataEnd = nullptr;
  DetectType_t m_type = eDetectedTypePlain;
  std::unique_ptr<long> m_codepage;
  int m_nonAscii = 0;
  int m_corrupt = 0;
  std::vector<unsigned char> m_codepageBytes;  // kept only when a code page is given
  std::vector<unsigned char> m_utf8Bytes;
};

// A detecting source over source (owned), filled and classified; type and,
// for codepage >= 1, the two flags are set. The caller owns the result.
NXXML_API IXmlStreamSource* XmlDetectStreamSourceFactory(IXmlStreamSource* source, long maxBytes, long codepage,
                                                         DetectType_t& type, int& nonAscii, int& corrupt);
// The source to parse a packet of unknown format from: detected, then
// repaired as OM or OMSR1, or served as it is when plain. An ambiguous or
// invalid packet is refused. Takes ownership of pDirty.
NXXML_API IXmlStreamSource* XmlDetectAndCleanStream(IXmlStreamSource* pDirty, unsigned int maxBytes);
// The repairing source of a packet version over pDirty (owned), or pDirty
// itself for a current version.
NXXML_API IXmlStreamSource* XmlCleanStreamSourceFactory(IXmlStreamSource* pDirty, AdRelayPacketVersion_t version);

// ===========================================================================
// The input stream.

class XmlTokenQueue;

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
  XmlConverter* GetConverter() const { return m_converter.get(); }
  // Puts the repairing source of a packet version in front of the source,
  // before the first read; a stream already repairing is refused.
  void CleanSource(AdRelayPacketVersion_t version);

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
  // Decodes the base64 text at the head, one text token at a time, into the
  // file (created or truncated); stops at the first token that is not text,
  // which stays unread (as a rule the element's end tag). The caller reads
  // the enclosing tags. Text that is not base64, a file that cannot be
  // written, or an error of the input raises, and no file is left.
  IXmlStream& Mime64_Decode(const unsigned short* fileName);

  // The deepest element nesting the stream accepts; deeper input raises
  // message 27322 at the start tag that goes too deep.
  // Set before the first read.
  void SetMaxElementDepth(int depth) { m_maxElementDepth = depth; }
  int GetMaxElementDepth() const { return m_maxElementDepth; }
  // The largest token the stream accepts (see DEFAULT_MAX_TOKEN_SIZE).
  void SetMaxTokenSize(long long size) { m_maxTokenSize = size; }
  long long GetMaxTokenSize() const { return m_maxTokenSize; }

 private:
  // The expat callbacks (src/input/handlers.cpp) and the readers reach the
  // state below directly.
  friend class XmlHelper;
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlETag& tag);
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlCharData& text);
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlElement& element);

  // Frees an expat parser.
  struct FreeParser {
    void operator()(void* parser) const noexcept;
  };

  void Init(IXmlStreamSource* source, bool asciiOnly, bool lenientDecoding);
  // Parse_More when the queue does not answer: reads and parses input
  // until it does or the input ends.
  [[gnu::noinline]] int ReadMore();
  // Parses bytes, keeping C++ exceptions out of expat's frames: a handler's
  // exception stops the parser and is rethrown here once expat returned.
  int ParseBytes(const char* data, int length, int isFinal);
  void RethrowPending();
  // At the end of the input, has expat parse what it held back.
  void FlushHeldBack();
  // Refuses an unfinished token that has grown past the size limit.
  void CheckHeldBack();
  // Embedded mode: the artificial root opened, closed by the application,
  // and closed as Finish takes it.
  void OpenEmbeddedRoot();
  void CloseEmbeddedRoot();
  void CloseEmbedded();
  // Reads the text at the head into a new character-data item at the end
  // of element, as extracting it into element.AddCharData(u"") does.
  void ExtractCharDataItem(XmlElement& element);

  // The failures met while parsing, each queued as an error token at the
  // tail (src/input/errors.cpp describes the one path they take).
  // Expat's failure; buf and n are the failing chunk, start the index of
  // its first byte.
  void QueueParseError(const char* buf, int n, long long start);
  // A message exception a handler caught; frees e.
  void AddErrorTokensToStream(QmMsgException* e);
  // Message id with "%_ARG1_%" arg and the location (the current one when
  // null); ends the parse: nothing after it is read.
  void RefuseAndStop(long id, long long arg, const XmlSourceLocation* at = nullptr);

  // Hook object handed every image and extracted token; never null while
  // the stream is open.
  std::unique_ptr<XmlConverter> m_converter;
  // The expat parser; its user data is this stream.
  std::unique_ptr<void, FreeParser> m_parser;
  // The parsed tokens waiting for a reader, and whether it wants text whole.
  std::unique_ptr<XmlTokenQueue> m_tokens;
  // Where the bytes come from.
  std::unique_ptr<IXmlStreamSource> m_source;
  // Set when the handlers dropped the line feed that starts a text after a
  // tag; cleared by every tag.
  int m_newlineStripped = 0;
  // The last text piece ended on an unpaired escape mark.
  bool m_lastCharDataEndedWithEscape = false;
  // The two decoding flags of the constructors.
  bool m_asciiOnly = false;
  bool m_lenientDecoding = false;
  // Elements open at the parser's place, and the most that may be.
  int m_depth = 0;
  int m_maxElementDepth = DEFAULT_MAX_ELEMENT_DEPTH;
  // Set once the parse was stopped for good (a handler raised, or the input
  // was refused); no further byte is read.
  bool m_parseStopped = false;
  // Set once expat was made to parse what it held back at the end.
  bool m_heldBackFlushed = false;
  // An exception a handler raised, rethrown once XML_Parse has returned.
  std::exception_ptr m_pending;
  // Bytes given to expat so far: the index of the next chunk's first byte.
  long long m_bytesParsed = 0;
  long long m_maxTokenSize = DEFAULT_MAX_TOKEN_SIZE;
  // The index just past the last event expat reported: what lies between
  // it and m_bytesParsed is held back as an unfinished token.
  long long m_consumed = 0;
  // The place of the last event expat reported: its first byte, and the
  // line and column there. The handlers keep them from the event's own
  // bytes, so a token's location costs no second pass of the parser over
  // the input; m_line and m_column hold the place just past the event, or
  // -1 when the stream lost count and must ask the parser.
  long long m_eventByte = -1;
  long long m_eventLine = 1;
  long long m_eventColumn = 0;
  long long m_line = 1;
  long long m_column = 0;
  // Whether the handlers count places at all: expat reads an input that
  // starts with a zero byte or a UTF-16 byte order mark as UTF-16, whose
  // bytes the count does not know; such an input is left to expat's count.
  bool m_countPlaces = true;
  // The input's first byte until its second is known, or -1.
  int m_firstByte = -1;
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

class OXmlFileSeries;

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

  // Writes the base64 of the file, in lines of 64 characters, through the
  // limit of this stream (a series goes on in its next file). The caller
  // writes the enclosing tags. Raises when the file cannot be read.
  OXmlStream& Mime64_Encode_File(const unsigned short* fileName);

 private:
  // The operators that write numbers and tokens.
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, long value);
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlToken& token);
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlElement& element);
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlCharData& text);
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlETag& tag);
  friend NXXML_API OXmlStream& operator<<(OXmlStream& out, const XmlSTag& tag);

  // Which image of a token WriteImage writes.
  enum Image {
    VIRTUAL,    // the token's virtual GetImage
    END_TAG,    // XmlETag::GetImage
    START_TAG,  // XmlSTag::GetImage(">", converter)
  };
  // Renders the token's image straight into the byte buffer, then writes
  // it whole, so that a token that fails to render writes nothing.
  void WriteImage(const XmlToken& token, Image how);
  [[noreturn]] void RaiseWriteError();

  // Where the bytes go. Each destination has one owner:
  //   memory            m_memory, the stream's own string stream;
  //   a caller's stream m_stream (and m_strstream for a string stream),
  //                     borrowed;
  //   a caller's file   m_fileStream, borrowed: Close() closes it, and
  //                     nothing deletes it;
  //   a file series     m_series, which owns the file being written.
  std::unique_ptr<std::ostringstream> m_memory;
  std::unique_ptr<OXmlFileSeries> m_series;
  // Where bytes go now; null once a series' file was closed.
  std::ostream* m_stream = nullptr;
  // The string stream whose contents Str() returns, if any.
  std::ostringstream* m_strstream = nullptr;
  // The file being written (the caller's, or the series'), if any.
  std::ofstream* m_fileStream = nullptr;
  // 1 for memory and a caller's stream, 0 for file output.
  int m_isStrstream = 1;
  // The converter handed to every image, and the same again when the
  // stream owns it.
  XmlConverter* m_converter = nullptr;
  std::unique_ptr<XmlConverter> m_ownedConverter;
  // Bytes allowed in a file (or in all of a stream); 0 or less: no limit.
  long long m_maxSize = 0;
  // Bytes written into the current file (or stream) since it was opened.
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
