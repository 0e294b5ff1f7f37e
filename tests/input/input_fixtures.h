// Shared helpers of the tests: token descriptions, trickling sources, a fresh folder for each test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <type_traits>

#include "fuzz/fuzz_common.h"

using fuzz::Describe;  // one line per token: "S name a=v ...", "E name", "T text"

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

// A string in reads of the given sizes, cycling through them.
struct TrickleSource : fuzz::Pieces {
  explicit TrickleSource(std::string data, std::vector<long> sizes = {ReadSize()})
      : Pieces(std::move(data), std::move(sizes)) {}
};

inline std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

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

// What f did: the bytes it returned (none for a void f), "!id text @unit"
// for the QmMsgException it raised or "!full" for an XmlException, freed.
template <class F>
std::string Capture(F f) {
  try {
    if constexpr (std::is_void_v<decltype(f())>) {
      f();
      return std::string();
    } else {
      return f();
    }
  } catch (QmMsgException* e) {
    const std::string raised =
        "!" + std::to_string(e->GetMessage(0).GetId()) + " " + e->GetFullText().ToUtf8() + " @" + e->GetFile();
    e->Delete();
    return raised;
  } catch (XmlException* e) {
    e->Delete();
    return "!full";
  }
}

// Each test writes in a fresh folder, removed with its contents.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/nxxml_test_XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    m_dir = tmpl;
  }
  void TearDown() override {
    if (std::system(("rm -rf '" + m_dir + "'").c_str()) != 0) ADD_FAILURE() << "cannot remove " << m_dir;
  }
  std::string Path(const std::string& name) const { return m_dir + "/" + name; }
  Obx_String Wide(const std::string& name) const { return Obx_String::FromUtf8(Path(name).c_str()); }
  static bool Exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  std::string m_dir;
};
