// Puts a repairing source in front of the stream's source.
#include "ids.h"
#include "xmlstream.h"

void IXmlStream::CleanSource(AdRelayPacketVersion_t version) {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != 0", nxmsg::kStreamUnit);
  AD_ASSERT_TEXT(dynamic_cast<IXmlCleanStreamSource*>(m_source.get()) == nullptr,
                 "dynamic_cast<IXmlCleanStreamSource*>(m_source) == 0", nxmsg::kStreamUnit);
  // The parser stays with the wrapped source, which keeps answering for
  // locations; the repair applies from the current position on. The
  // repairing source takes the old one over, and until it exists the
  // stream still owns it.
  IXmlStreamSource* dirty = m_source.get();
  IXmlStreamSource* clean = XmlCleanStreamSourceFactory(dirty, version);
  if (clean != dirty) {
    m_source.release();
    m_source.reset(clean);
  }
}
