#include "nxfiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nxcharsets.h"

CFile::CFile(const unsigned short* name, OpenFlags) : m_fd(::open(MbcsFileName(name).getData(), O_RDONLY)) {}

CFile::~CFile() {
  if (m_fd >= 0) ::close(m_fd);
}

unsigned long long CFile::GetLength() const {
  struct stat st;
  if (m_fd < 0 || ::fstat(m_fd, &st) != 0) return 0;
  return static_cast<unsigned long long>(st.st_size);
}

int _tunlink(const unsigned short* name) { return ::unlink(MbcsFileName(name).getData()); }
