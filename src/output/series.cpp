// The file series: names, opening, listing and deleting its files.
#include "output/series.h"

#include <cerrno>
#include <cstring>

#include "ids.h"

using namespace nxmsg;

namespace {

std::unique_ptr<std::ofstream> OpenForOutput(const Obx_String& name) {
  return std::unique_ptr<std::ofstream>(
      new std::ofstream(MbcsFileName(name).getData(), std::ios::out | std::ios::trunc | std::ios::binary));
}

}  // namespace

Obx_String OXmlFileSeries::Name(unsigned int k) const {
  if (k <= 1) return m_baseName;
  return Obx_String::Format(NX_U16(u"%s_%d"), m_baseName, k);
}

std::ofstream& OXmlFileSeries::OpenFirst() {
  errno = 0;
  std::unique_ptr<std::ofstream> file = OpenForOutput(m_baseName);
  if (!file->good()) {
    const int reason = errno;
    QmMessage message(kCannotCreateMsgId);
    message.SetParam("%_ARG1_%", m_baseName);
    message.SetParam("%_ARG2_%", Obx_String::FromUtf8(reason ? std::strerror(reason) : "unknown reason"));
    AdThrowMsgExcept(message, "", kStreamUnit, __LINE__);
  }
  m_count = 1;
  m_file = std::move(file);
  return *m_file;
}

std::ofstream& OXmlFileSeries::OpenNext() {
  ++m_count;
  m_file = OpenForOutput(Name(m_count));
  return *m_file;
}

double OXmlFileSeries::List(CStringArray& files) const {
  files.RemoveAll();
  double total = 0;
  for (unsigned int k = 1; k <= m_count; ++k) {
    const Obx_String name = Name(k);
    files.Add(name);
    total += static_cast<double>(CFile(name, CFile::modeRead).GetLength());
  }
  return total;
}

void OXmlFileSeries::Delete(unsigned int keep) {
  while (m_count > keep) {
    const Obx_String name = Name(m_count);
    --m_count;
    _tunlink(name);
  }
}
