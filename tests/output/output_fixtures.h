// Shared helpers of the output-stream tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "xmlstream.h"

// What a call did: the bytes it produced, or what it raised.
struct Outcome {
  std::string bytes;
  bool raised = false;
  long id = 0;
  std::string text;
  std::string file;

  bool operator==(const Outcome& o) const {
    return raised == o.raised && (raised ? id == o.id && text == o.text && file == o.file : bytes == o.bytes);
  }
};

inline std::ostream& operator<<(std::ostream& os, const Outcome& o) {
  if (o.raised) return os << "raised " << o.id << " \"" << o.text << "\" in " << o.file;
  return os << "bytes \"" << o.bytes << "\"";
}

// Runs f; a QmMsgException it raises is recorded and freed.
inline Outcome Capture(const std::function<std::string()>& f) {
  Outcome out;
  try {
    out.bytes = f();
  } catch (QmMsgException* e) {
    out.raised = true;
    out.id = e->GetMessage(0).GetId();
    out.text = e->GetText().ToUtf8();
    out.file = e->GetFile();
    e->Delete();
  }
  return out;
}

// Runs f and reports whether it raised an XmlException, freeing it.
inline bool RaisesXmlException(const std::function<void()>& f) {
  try {
    f();
  } catch (XmlException* e) {
    e->Delete();
    return true;
  }
  return false;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

inline bool FileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

inline Obx_String Wide(const std::string& utf8) { return Obx_String::FromUtf8(utf8.c_str()); }

// A fresh folder for the files a test writes, removed with its contents.
class TempDir : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/nxxml_output_XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    m_dir = tmpl;
  }
  void TearDown() override {
    if (std::system(("rm -rf '" + m_dir + "'").c_str()) != 0) ADD_FAILURE() << "cannot remove " << m_dir;
  }
  std::string Path(const std::string& name) const { return m_dir + "/" + name; }

  std::string m_dir;
};
