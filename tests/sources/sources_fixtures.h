// Shared by the tests of the repairing and detecting sources.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "input/input_fixtures.h"

// The process's locale for one test. A locale that is not installed skips
// the test, unless NXXML_REQUIRE_LOCALES is set (as CI sets it), where it
// fails: scripts/setup.sh generates zh_CN.GBK and en_US.CP1252.
class LocaleScope {
 public:
  explicit LocaleScope(const char* name) : m_saved(std::setlocale(LC_ALL, nullptr)) {
    m_ok = std::setlocale(LC_ALL, name) != nullptr;
  }
  ~LocaleScope() { std::setlocale(LC_ALL, m_saved.c_str()); }
  bool ok() const { return m_ok; }

 private:
  std::string m_saved;
  bool m_ok = false;
};

#define NXXML_NEED_LOCALE(scope, name)                                                          \
  LocaleScope scope(name);                                                                      \
  if (!scope.ok()) {                                                                            \
    if (std::getenv("NXXML_REQUIRE_LOCALES")) FAIL() << "the locale " << name << " is missing"; \
    GTEST_SKIP() << "the locale " << name << " is not installed";                               \
  }

// Everything the source delivers in reads of size bytes, then "|! " and
// the condition of a failure.
inline std::string Drain(IXmlStreamSource& source, long size) {
  std::string out;
  std::string buf(static_cast<std::size_t>(size), '\0');
  try {
    while (!source.eof()) {
      const long got = source.read(&buf[0], size);
      out.append(buf, 0, static_cast<std::size_t>(got));
      if (got == 0) break;
    }
  } catch (QmMsgException* e) {
    out += "|! " + Condition(e);
  }
  return out;
}
