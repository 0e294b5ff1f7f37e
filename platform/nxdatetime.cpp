#include "nxdatetime.h"

#include <ctime>
#include <string>

AdDateTime::AdDateTime(int year, int month, int day, int hour, int minute, int second) {
  std::tm tm = {};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  m_seconds = static_cast<long long>(timegm(&tm));
}

Obx_String AdDateTime::FormatGMT(const unsigned short* format) const {
  return FormatGMT(Obx_String(format).ToUtf8().c_str());
}

Obx_String AdDateTime::FormatGMT(const char* format) const {
  const std::time_t t = static_cast<std::time_t>(m_seconds);
  std::tm tm = {};
  if (!gmtime_r(&t, &tm)) return Obx_String();
  char buf[256];
  const std::size_t n = std::strftime(buf, sizeof buf, format, &tm);
  return Obx_String::FromUtf8(buf, n);
}

bool AdDateTime::ParseDateTimeGMT(const unsigned short* text, const void*) {
  const std::string narrow = Obx_String(text).ToUtf8();
  std::tm tm = {};
  const char* end = strptime(narrow.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
  if (!end || *end != '\0') return false;
  m_seconds = static_cast<long long>(timegm(&tm));
  return true;
}
