// Shared helpers of the output-stream tests.
#pragma once

#include <unistd.h>

#include <fstream>
#include <iterator>

#include "input/input_fixtures.h"

// Each test writes in a fresh folder, removed with its contents.
class TempDirTest : public ::testing::Test {
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
  Obx_String Wide(const std::string& name) const { return Obx_String::FromUtf8(Path(name).c_str()); }
  static bool Exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  std::string m_dir;
};
