// Character data: construction, copying and the growth of appended text.
#include "xmlcontent.h"

XmlCharData::XmlCharData(const unsigned short* data, long length)
    : m_data(data, static_cast<int>(length < 0 ? _tcslen(data) : length)) {}

XmlCharData::XmlCharData(const Obx_String& data) : m_data(data) {}

// The base is default-constructed on purpose: a copy is a new token with no
// owners and no place in any input.
XmlCharData::XmlCharData(const XmlCharData& other)
    : XmlContent(), m_data(other.m_data), m_capacity(other.m_data.GetLength()) {}

XmlCharData& XmlCharData::operator=(const XmlCharData& other) {
  m_data = other.m_data;
  m_capacity = m_data.GetLength();
  return *this;
}

XmlCharData::~XmlCharData() = default;

void XmlCharData::AppendData(const unsigned short* data, long length) {
  if (length < 0) length = _tcslen(data);
  const int oldLength = m_data.GetLength();
  const int needed = oldLength + static_cast<int>(length);
  unsigned short* buffer;
  // The parser hands text over in many small pieces; growing by a tenth
  // beyond the need keeps a run of appends from reallocating every time.
  if (needed > m_capacity) {
    m_capacity = static_cast<int>(needed * 1.1);
    buffer = m_data.GetBuffer(m_capacity);
  } else {
    buffer = m_data.GetBuffer(needed);
  }
  _tcsncpy(buffer + oldLength, data, static_cast<std::size_t>(length));
  m_data.ReleaseBuffer(needed);
}
