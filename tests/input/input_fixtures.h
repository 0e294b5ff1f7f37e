// Shared helpers of the input-stream tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "xmlstream.h"

// The bytes a read of the tests' sources delivers unless a test sets its
// own: the input suites run at 1, 3 and 4096 (NXXML_READ_SIZE, set where
// the tests are registered), so that tokens, errors and locations are
// checked with chunk boundaries everywhere.
inline long ReadSize() {
  static const long size = [] {
    const char* text = std::getenv("NXXML_READ_SIZE");
    const long n = text ? std::atol(text) : 0;
    return n > 0 ? n : 4096L;
  }();
  return size;
}

// Delivers a string in reads of the given sizes, cycling through them, so
// that every chunk boundary can be tried.
class TrickleSource : public IXmlStreamSource {
 public:
  explicit TrickleSource(std::string data, std::vector<long> sizes = {ReadSize()})
      : m_data(std::move(data)), m_sizes(std::move(sizes)) {}
  bool eof() override { return m_pos >= m_data.size(); }
  long read(char* buf, long n) override {
    long want = m_sizes[m_next++ % m_sizes.size()];
    if (want > n) want = n;
    const long left = static_cast<long>(m_data.size() - m_pos);
    if (want > left) want = left;
    m_data.copy(buf, static_cast<std::size_t>(want), m_pos);
    m_pos += static_cast<std::size_t>(want);
    return want;
  }

 private:
  std::string m_data;
  std::vector<long> m_sizes;
  std::size_t m_pos = 0;
  std::size_t m_next = 0;
};

inline std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

// One line per token: "S name a=v ...", "E name", "T text".
inline std::string Describe(const XmlToken& token) {
  switch (token.GetType()) {
    case XT_STAG: {
      const XmlSTag& tag = static_cast<const XmlSTag&>(token);
      std::string out = "S " + Utf8(tag.GetName());
      const CMapStringToString& map = tag.GetAttributes();
      for (int k = 0; k < map.GetCount(); ++k) out += " " + Utf8(map.KeyAt(k)) + "=" + Utf8(map.ValueAt(k));
      return out;
    }
    case XT_ETAG:
      return "E " + Utf8(static_cast<const XmlETag&>(token).GetName());
    default:
      return "T " + Utf8(static_cast<const XmlCharData&>(token).GetData());
  }
}

// Every token of the stream, and with toTheEnd what Finish reveals too; an
// error ends the list with "! " and its text.
inline std::vector<std::string> AllTokens(IXmlStream& in, bool toTheEnd = false) {
  std::vector<std::string> out;
  try {
    do {
      while (XmlToken* raw = in.GetNextToken()) {
        NXSmartPtr<XmlToken> token(raw);
        out.push_back(Describe(*token));
      }
    } while (toTheEnd && in.Finish());
  } catch (QmMsgException* e) {
    out.push_back("! " + Utf8(e->GetFullText()));
    e->Delete();
  }
  return out;
}

inline std::vector<std::string> TokensOf(const std::string& xml, std::vector<long> sizes = {ReadSize()}) {
  IXmlStream in(new TrickleSource(xml, std::move(sizes)));
  return AllTokens(in);
}

// Runs f, expecting a QmMsgException*; returns it (the caller deletes it)
// or null when nothing was raised.
inline QmMsgException* Raised(const std::function<void()>& f) {
  try {
    f();
  } catch (QmMsgException* e) {
    return e;
  }
  return nullptr;
}

// The condition text of a raised assertion, "unreached" for the
// unreachable-code message, or the full text of another message; frees e.
inline std::string Condition(QmMsgException* e) {
  if (!e) return "(nothing raised)";
  std::string text;
  if (e->GetMessage(0).GetId() == AdGetHitUnreachedMsgID())
    text = "unreached";
  else if (e->GetMessage(0).GetId() == AdGetBadValue0MsgID())
    text = Utf8(e->GetText());
  else
    text = Utf8(e->GetFullText());
  e->Delete();
  return text;
}

// Runs f and tells what it raised, as Condition tells it.
inline std::string Caught(const std::function<void()>& f) { return Condition(Raised(f)); }
