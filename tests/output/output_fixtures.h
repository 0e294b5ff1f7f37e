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

// What a call did: the bytes it returned, "!id text @unit" for the
// QmMsgException it raised or "!full" for an XmlException, freed.
inline std::string Capture(const std::function<std::string()>& f) {
  try {
    return f();
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

inline std::string Caught(const std::function<void()>& f) {
  return Capture([&] {
    f();
    return std::string();
  });
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
