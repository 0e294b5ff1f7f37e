#include "progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace {

// Redraws are spaced so that the line costs nothing next to the work.
const std::chrono::milliseconds kRedraw(250);

std::string Amount(double bytes) {
  const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int unit = 0;
  while (bytes >= 1024 && unit < 4) {
    bytes /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
  return text;
}

}  // namespace

Progress::Progress(std::string label, long long total)
    : m_label(std::move(label)),
      m_total(total),
      m_enabled(::isatty(STDERR_FILENO) && (total > kProgressThreshold || total < 0)),
      m_start(std::chrono::steady_clock::now()),
      m_lastDraw(m_start) {}

Progress::~Progress() {
  if (!m_shown) return;
  Draw();
  std::cerr << "\n" << std::flush;
}

void Progress::Add(long bytes) {
  m_done += bytes;
  if (!m_enabled || (m_total < 0 && m_done <= kProgressThreshold)) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - m_lastDraw < kRedraw) return;
  m_lastDraw = now;
  Draw();
}

void Progress::Draw() {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  // Carriage return and clear to the end of the line: the line is redrawn
  // in place, however its length changes.
  std::cerr << "\r" << Line(m_label, m_done, m_total, seconds) << "\033[K" << std::flush;
  m_shown = true;
}

std::string Progress::Line(const std::string& label, long long done, long long total, double seconds) {
  std::string line = label + ": " + Amount(static_cast<double>(done));
  if (total > 0) {
    line += " of " + Amount(static_cast<double>(total));
    char percent[16];
    std::snprintf(percent, sizeof percent, " (%d%%)", static_cast<int>(done * 100 / total));
    line += percent;
  }
  if (seconds > 0) line += ", " + Amount(static_cast<double>(done) / seconds) + "/s";
  return line;
}

long long InputSize(const std::vector<std::string>& files) {
  long long total = 0;
  for (const std::string& file : files) {
    struct stat info;
    const int got = file == "-" ? ::fstat(STDIN_FILENO, &info) : ::stat(file.c_str(), &info);
    if (got != 0 || !S_ISREG(info.st_mode)) return -1;
    total += static_cast<long long>(info.st_size);
  }
  return total;
}
