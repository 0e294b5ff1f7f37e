#include "nxdiagnostics.h"

#include <cstdlib>
#include <cstring>
#include <iostream>

unsigned char AdDiagnostic::m_DiagnosticFlags[AdDiagnostic::MAX_DIAGNOSTIC_ID];

namespace {

long g_levels[AdDiagnostic::MAX_DIAGNOSTIC_ID];

AdDiagnostic::Sink& CurrentSink() {
  static AdDiagnostic::Sink sink;
  return sink;
}

bool InTable(AdDiagnosticId id) { return id >= 0 && id < AdDiagnostic::MAX_DIAGNOSTIC_ID; }

// Applies NX_DIAGNOSTICS when the library is loaded, before any caller can
// read the flags.
struct EnvironmentSettings {
  EnvironmentSettings() {
    if (const char* settings = std::getenv("NX_DIAGNOSTICS")) AdDiagnostic::Configure(settings);
  }
} g_environmentSettings;

}  // namespace

void AdDiagnostic::SetDiagnosticIdLevel(AdDiagnosticId id, long level) {
  if (!InTable(id)) return;
  g_levels[id] = level > 0 ? level : 0;
  m_DiagnosticFlags[id] = level > 0 ? 1 : 0;
}

long AdDiagnostic::GetDiagnosticIdLevel(AdDiagnosticId id) { return InTable(id) ? g_levels[id] : 0; }

bool AdDiagnostic::IsEnabled(AdDiagnosticId id, long level, long) {
  return InTable(id) && m_DiagnosticFlags[id] && g_levels[id] >= level;
}

void AdDiagnostic::Configure(const char* settings) {
  const char* p = settings;
  while (p && *p) {
    char* end = nullptr;
    const long id = std::strtol(p, &end, 10);
    if (end != p && *end == '=') {
      const char* levelText = end + 1;
      const long level = std::strtol(levelText, &end, 10);
      if (end != levelText) SetDiagnosticIdLevel(id, level);
    }
    p = std::strchr(p, ',');
    if (p) ++p;
  }
}

void AdDiagnostic::Report(const unsigned short* source, const Obx_String& text) {
  const Obx_String label(source);
  if (CurrentSink()) {
    CurrentSink()(label, text);
    return;
  }
  std::cerr << label.ToUtf8() << ": " << text.ToUtf8() << '\n';
}

void AdDiagnostic::SetSink(Sink sink) { CurrentSink() = std::move(sink); }

std::ostream* AdUTF16OStream::SetTarget(std::ostream* out) {
  std::ostream* previous = m_out;
  m_out = out;
  return previous;
}

AdUTF16OStream& AdUTF16OStream::operator<<(const unsigned short* text) { return *this << Obx_String(text); }

AdUTF16OStream& AdUTF16OStream::operator<<(const Obx_String& text) {
  if (m_out) *m_out << text.ToUtf8();
  return *this;
}

AdUTF16OStream& AdUTF16OStream::operator<<(const char* text) {
  if (m_out && text) *m_out << text;
  return *this;
}

AdUTF16OStream& AdUTF16OStream::operator<<(long value) {
  if (m_out) *m_out << value;
  return *this;
}

AdUTF16OStream& AdUTF16OStream::endl(AdUTF16OStream& s) {
  if (s.m_out) *s.m_out << std::endl;
  return s;
}

AdUTF16OStream& get_nxcout() {
  static AdUTF16OStream console(&std::cout);
  return console;
}
