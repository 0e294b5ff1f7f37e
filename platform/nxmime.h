// Base64 of a whole file (RFC 2045 alphabet), streamed through an adaptor
// so that neither side ever holds the file or its text whole.
#pragma once

#include "nxplatform_export.h"
#include "nxstrings.h"

// Where base64 text goes to or comes from.
class NXPLATFORM_API AdMimeStreamHelper {
 public:
  // The next piece of base64 text; an empty one ends the text. Pieces may
  // be cut anywhere, even inside a group of four characters.
  virtual Obx_String Read() = 0;
  // Takes the next piece of base64 text (zero-terminated).
  virtual void Write(const unsigned short* text) = 0;
  virtual ~AdMimeStreamHelper();
};

// Catalogue ids of the utility's failures. Each names the file in
// "%_ARG1_%"; the first two give the system's reason in "%_ARG2_%", the
// last the number of bytes that had been decoded when the text went wrong.
enum : long {
  AD_MIME_CANNOT_READ_MSGID = 20010,
  AD_MIME_CANNOT_WRITE_MSGID = 20011,
  AD_MIME_NOT_BASE64_MSGID = 20012,
};

class NXPLATFORM_API AdMimeUtil {
 public:
  AdMimeUtil();
  ~AdMimeUtil();
  AdMimeUtil(const AdMimeUtil&) = delete;
  AdMimeUtil& operator=(const AdMimeUtil&) = delete;

  // Reads the file in bounded pieces and hands its base64 text to helper,
  // as lines of 64 characters each ended by a line feed. Raises
  // AD_MIME_CANNOT_READ_MSGID when the file cannot be opened or read.
  void EncodeFileToStream(const unsigned short* fileName, AdMimeStreamHelper& helper);
  // Asks helper for pieces of text until an empty one and writes the bytes
  // they decode to into the file (created or truncated). White space
  // between characters is ignored. Raises AD_MIME_NOT_BASE64_MSGID for text
  // that is not base64 and AD_MIME_CANNOT_WRITE_MSGID when the file cannot
  // be written; on any failure, the helper's own included, the file is
  // removed.
  void DecodeStreamToFile(AdMimeStreamHelper& helper, const unsigned short* fileName);
};
