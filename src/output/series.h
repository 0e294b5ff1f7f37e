// A series of output files N, N_2, N_3... written one after the other.
#pragma once

#include <fstream>
#include <memory>

#include "xmlstream.h"

// Knows the names of its files, owns the one being written, opens the next
// one, and lists and deletes the files it made.
class OXmlFileSeries {
 public:
  // maxFiles 0 allows any number of files.
  OXmlFileSeries(const Obx_String& baseName, unsigned int maxFiles) : m_baseName(baseName), m_maxFiles(maxFiles) {}
  OXmlFileSeries(const OXmlFileSeries&) = delete;
  OXmlFileSeries& operator=(const OXmlFileSeries&) = delete;

  // Opens file 1, truncated; raises 27304 with the name and the system's
  // reason when it cannot be opened.
  std::ofstream& OpenFirst();
  // Counts and opens the next file, truncated. A failed open leaves the
  // stream failed: the first write into it reports that.
  std::ofstream& OpenNext();
  // Frees the file being written, which the caller has closed.
  void Release() { m_file.reset(); }

  // The files made so far, the one being written included.
  unsigned int Count() const { return m_count; }
  unsigned int MaxFiles() const { return m_maxFiles; }
  // Whether every file allowed has been made.
  bool AllMade() const { return m_maxFiles != 0 && m_count >= m_maxFiles; }
  // The name of file k (from 1): the base name itself, then base_k.
  Obx_String Name(unsigned int k) const;
  // Empties files, then lists the files in order; returns their total size
  // in bytes.
  double List(CStringArray& files) const;
  // Removes files from the last down to the first keep ones; a file that
  // cannot be removed is counted as removed all the same.
  void Delete(unsigned int keep);

 private:
  Obx_String m_baseName;
  unsigned int m_maxFiles;
  unsigned int m_count = 0;
  std::unique_ptr<std::ofstream> m_file;
};
