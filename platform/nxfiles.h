// Files and blobs: the length of a named file, removing a file, and a
// growable byte buffer.
#pragma once

#include <string>

#include "nxplatform_export.h"
#include "nxstrings.h"

class NXPLATFORM_API CFile {
 public:
  enum OpenFlags { modeRead = 0 };
  // Opens the named file (a UTF-16 name); whether it opened is IsOpen().
  CFile(const unsigned short* name, OpenFlags flags);
  ~CFile();
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  bool IsOpen() const { return m_fd >= 0; }
  // The file's size in bytes; 0 for a file that could not be opened.
  unsigned long long GetLength() const;

 private:
  int m_fd;
};

// Removes a file by its UTF-16 name; 0 on success, -1 on failure.
NXPLATFORM_API int _tunlink(const unsigned short* name);

class NXPLATFORM_API NxBlob {
 public:
  void Empty() { m_bytes.clear(); }
  void Append(const char* data, unsigned int length) { m_bytes.append(data, length); }
  unsigned int GetSize() const { return static_cast<unsigned int>(m_bytes.size()); }
  const char* GetData() const { return m_bytes.data(); }

 private:
  std::string m_bytes;
};
