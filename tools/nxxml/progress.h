// A progress line on standard error for long work (copy, and commands
// like it): bytes read, the share of the input when its size is known, and
// the rate. It shows only when standard error is a terminal and the input
// is larger than kProgressThreshold, so scripts and pipes see no change.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "xmlstream.h"

// Inputs larger than this show progress.
inline constexpr long long kProgressThreshold = 64LL << 20;

class Progress {
 public:
  // total: the input's size in bytes, or -1 when it is not known (a pipe);
  // such an input shows progress once more than the threshold was read.
  Progress(std::string label, long long total);
  // Ends the line with the final count, if one was shown.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Counts bytes read; redraws the line at most a few times a second.
  void Add(long bytes);
  // The line as drawn: "LABEL: 80.0 MiB of 160.0 MiB (50%), 40.0 MiB/s".
  static std::string Line(const std::string& label, long long done, long long total, double seconds);

 private:
  void Draw();

  std::string m_label;
  long long m_total;
  long long m_done = 0;
  bool m_enabled;
  bool m_shown = false;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_lastDraw;
};

// The size of the files of an input in bytes, -1 when one is not a
// regular file (standard input from a pipe, for one).
long long InputSize(const std::vector<std::string>& files);
