// Date and time: an instant with GMT formatting and parsing.
#pragma once

#include "nxplatform_export.h"
#include "nxstrings.h"

class NXPLATFORM_API AdDateTime {
 public:
  // The epoch, 1970-01-01 00:00:00 GMT.
  AdDateTime() = default;
  explicit AdDateTime(long long secondsSinceEpoch) : m_seconds(secondsSinceEpoch) {}
  // A calendar time read as GMT.
  AdDateTime(int year, int month, int day, int hour, int minute, int second);

  long long GetSecondsSinceEpoch() const { return m_seconds; }

  // strftime directives over the instant in GMT, e.g. "%Y-%m-%d %H:%M:%S".
  Obx_String FormatGMT(const unsigned short* format) const;
  Obx_String FormatGMT(const char* format) const;
  // Parses "%Y-%m-%d %H:%M:%S" as GMT (the second argument, a date-format
  // object, is accepted for the interface and not needed). Returns false and
  // leaves the instant unchanged when the text does not match.
  bool ParseDateTimeGMT(const unsigned short* text, const void* dateFormat = nullptr);

  friend bool operator==(const AdDateTime& a, const AdDateTime& b) { return a.m_seconds == b.m_seconds; }
  friend bool operator!=(const AdDateTime& a, const AdDateTime& b) { return a.m_seconds != b.m_seconds; }

 private:
  long long m_seconds = 0;
};
