// Streams on separate threads share nothing but the library's own tables,
// converters and caches: several threads reading and writing different
// packets at once must each get what one thread alone gets. The
// ThreadSanitizer build runs this to find any race in what they share.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "xmlstream.h"

namespace {

// A packet of its own for each thread: other names, other texts, some
// needing a code page, an escape or a reference.
std::string Packet(int n) {
  std::string xml = "<packet site=\"site" + std::to_string(n) + "\" version=\"5\">\n";
  for (int k = 0; k < 40; ++k) {
    xml += "<record id=\"" + std::to_string(k) + "\" op=\"" + (k % 2 ? "insert" : "update") + "\"><name>K\xC3\xB6ln " +
           std::to_string(n * 100 + k) + " &amp; \xE8\x8C\xB6</name><note>x\xEF\xA0\x80\xEF\xA0\x81y</note></record>\n";
  }
  return xml + "</packet>";
}

// Reads the packet record by record, renames one attribute value in each,
// writes the records to memory and to a series of small files, reads the
// memory back, and meets an error with its location. Returns all it saw as
// text. (Code pages on two threads have a test of their own.)
std::string Work(const std::string& xml, const std::string& folder) {
  std::string seen;
  std::istringstream text(xml);
  IXmlStream in(text);
  XmlSTag root(NX_U16(u"packet"));
  in >> root;
  const Obx_String series = Obx_String::FromUtf8((folder + "/out.xml").c_str());
  OXmlStream memory(0LL);
  {
    OXmlStream files(series, 512, 0);
    memory << root;
    files << root;
    while (in.GetNextTokenType() == XT_STAG) {
      XmlElement record;
      in >> record;
      record.GetSTag().SetAttribute(NX_U16(u"op"), NX_U16(u"done"), 1);
      memory << record;
      files << record;
    }
    XmlETag end(NX_U16(u"packet"));
    in >> end;
    memory << end;
    files << end;
    files.Close();
    CStringArray names;
    seen += std::to_string(static_cast<long long>(files.Get_Created_Files(names))) + " bytes in " +
            std::to_string(names.GetSize()) + " files\n";
    IXmlStream joined(names);
    XmlElement whole;
    joined >> whole;
    seen += std::to_string(whole.GetNumberofSubElements()) + " records read back\n";
    files.Delete_Created_Files(0);
  }
  const std::string written = memory.Str();
  seen += written;
  std::istringstream back(written);
  IXmlStream again(back);
  XmlElement copy;
  again >> copy;
  seen += copy.GetSubElement(7)->GetSubElement(u"name")->GetTextUtf8() + "\n";

  std::istringstream bad(xml.substr(0, 200) + "</wrong>");
  IXmlStream broken(bad);
  try {
    XmlElement whole;
    broken >> whole;
  } catch (QmMsgException* e) {
    seen += e->GetFullText().ToUtf8() + "\n";
    e->Delete();
  }
  return seen;
}

TEST(Threads, SeparateStreamsReadAndWriteAtOnce) {
  const int kThreads = 4;
  const int kRounds = 10;
  const std::filesystem::path base =
      std::filesystem::temp_directory_path() / ("nxxml_threads_" + std::to_string(::getpid()));
  std::vector<std::string> packets, folders, expected;
  for (int n = 0; n < kThreads; ++n) {
    packets.push_back(Packet(n));
    folders.push_back((base / std::to_string(n)).string());
    std::filesystem::create_directories(folders.back());
    expected.push_back(Work(packets.back(), folders.back()));
  }
  ASSERT_NE(expected[0].find("40 records read back"), std::string::npos) << expected[0];
  ASSERT_NE(expected[0].find("op=\"done\""), std::string::npos);
  ASSERT_NE(expected[0].find("TAG_MISMATCH"), std::string::npos);

  std::vector<std::vector<std::string>> results(kThreads);
  std::vector<std::thread> threads;
  for (int n = 0; n < kThreads; ++n)
    threads.emplace_back([&, n] {
      for (int round = 0; round < kRounds; ++round) results[n].push_back(Work(packets[n], folders[n]));
    });
  for (std::thread& t : threads) t.join();
  for (int n = 0; n < kThreads; ++n)
    for (int round = 0; round < kRounds; ++round) EXPECT_EQ(results[n][round], expected[n]) << n << " " << round;
  std::filesystem::remove_all(base);
}

}  // namespace
