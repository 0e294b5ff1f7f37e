// Diagnostics: per-id switches with levels, reporting, and the UTF-16
// console stream.
#pragma once

#include <functional>
#include <ostream>

#include "nxplatform_export.h"
#include "nxstrings.h"

typedef long AdDiagnosticId;

class NXPLATFORM_API AdDiagnostic {
 public:
  enum { MAX_DIAGNOSTIC_ID = 1024 };

  // The fast switch of each id, non-zero while its level is above 0. Read
  // directly on hot paths before anything else is done.
  static unsigned char m_DiagnosticFlags[MAX_DIAGNOSTIC_ID];

  // Sets the level of an id (0 switches it off). Ids outside the table are
  // ignored. The environment variable NX_DIAGNOSTICS ("36=2,47=3") is read
  // once when the library is loaded.
  static void SetDiagnosticIdLevel(AdDiagnosticId id, long level);
  static long GetDiagnosticIdLevel(AdDiagnosticId id);
  // True when the id is switched on at the given level or above.
  static bool IsEnabled(AdDiagnosticId id, long level, long flags);
  // Parses and applies a "id=level,id=level" list; malformed entries are
  // skipped.
  static void Configure(const char* settings);

  // Reports one line under a source label (e.g. "Xmlstream").
  static void Report(const unsigned short* source, const Obx_String& text);
  // Formats and reports when IsEnabled(id, level, flags); the category is
  // the source label of the line.
  template <class... A>
  static void TestAndReportV(AdDiagnosticId id, long level, long flags, const char* category, const char* format,
                             const A&... args) {
    if (!IsEnabled(id, level, flags)) return;
    Report(Obx_String::FromUtf8(category).GetData(), Obx_String::Format(format, args...));
  }

  // Where reports go; an empty sink restores the default, standard error.
  typedef std::function<void(const Obx_String& source, const Obx_String& text)> Sink;
  static void SetSink(Sink sink);
};

// A console stream that takes UTF-16 text and writes UTF-8.
class NXPLATFORM_API AdUTF16OStream {
 public:
  explicit AdUTF16OStream(std::ostream* out) : m_out(out) {}
  // Redirects the stream (tests capture it); returns the previous target.
  std::ostream* SetTarget(std::ostream* out);
  AdUTF16OStream& operator<<(const unsigned short* text);
  AdUTF16OStream& operator<<(const Obx_String& text);
  AdUTF16OStream& operator<<(const char* text);
  AdUTF16OStream& operator<<(long value);
  AdUTF16OStream& operator<<(AdUTF16OStream& (*manipulator)(AdUTF16OStream&)) { return manipulator(*this); }
  // End of line and flush.
  static AdUTF16OStream& endl(AdUTF16OStream& s);

 private:
  std::ostream* m_out;
};

// The process's UTF-16 console stream, on standard output by default.
NXPLATFORM_API AdUTF16OStream& get_nxcout();
