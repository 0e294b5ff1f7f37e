#include "xmlstream.h"

namespace {
const char* const kUnit = "xmlstream";
}

void IXmlStream::CleanSource(AdRelayPacketVersion_t version) {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != 0", kUnit);
  AD_ASSERT_TEXT(dynamic_cast<IXmlCleanStreamSource*>(m_source) == nullptr,
                 "dynamic_cast<IXmlCleanStreamSource*>(m_source) == 0", kUnit);
  // The parser stays with the wrapped source, which keeps answering for
  // locations; the repair applies from the current position on.
  m_source = XmlCleanStreamSourceFactory(m_source, version);
}
