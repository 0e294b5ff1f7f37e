// Size-limited output: the cut at the limit, the series of files, the
// maximum number of files with and without overflow, write errors.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>

#include "input/input_fixtures.h"

namespace {

class SeriesTest : public TempDirTest {
 protected:
  // The files the stream lists, each "name:size", and the total; joined
  // gets their contents one after the other.
  std::string Listed(OXmlStream& out, std::string* joined = nullptr) {
    CStringArray files;
    const double total = out.Get_Created_Files(files);
    std::string listed;
    for (int k = 0; k < files.GetSize(); ++k) {
      const std::string name = files[k].ToUtf8();
      const std::string bytes = Read(name);
      if (joined) *joined += bytes;
      listed += name.substr(m_dir.size() + 1) + ":" + std::to_string(bytes.size()) + " ";
    }
    return listed + "= " + std::to_string(static_cast<long long>(total));
  }
};

TEST_F(SeriesTest, CutAtTheLimitAndTheNumberOfFiles) {
  struct Case {
    const char* name;
    int maxFiles;
    int overflow;
    std::vector<std::string> writes;  // "#" writes the number 12345
    int raised;                       // writes that raised XmlException
    const char* listed;
    int overflowed;
  };
  const std::string u20(20, 'u'), u25(25, 'u');
  const Case cases[] = {
      {"one write over three files", 3, 0, {u25}, 0, "N:10 N_2:10 N_3:5 = 25", 0},
      {"ending at the limit opens no file", 3, 0, {"0123456789"}, 0, "N:10 = 10", 0},
      {"the next write does", 3, 0, {"0123456789", "a"}, 0, "N:10 N_2:1 = 11", 0},
      {"a character split between files", 0, 0, {"012345678", "\xE4\xB8\xAD!"}, 0, "N:10 N_2:3 = 13", 0},
      {"no limit on the number of files", 0, 0, {u25, u25}, 0, "N:10 N_2:10 N_3:10 N_4:10 N_5:10 = 50", 0},
      {"numbers are not counted", 1, 0, {"0123456789", "#"}, 0, "N:15 = 15", 0},
      {"empty writes", 1, 0, {"", "0123456789", ""}, 0, "N:10 = 10", 0},
      {"the last file full refuses, and again", 1, 0, {"0123456789", "a", "bc"}, 2, "N:10 = 10", 0},
      {"what fitted is written", 2, 0, {u25}, 1, "N:10 N_2:10 = 20", 0},
      {"overflow: more files", 2, 1, {u25}, 0, "N:10 N_2:10 N_3:5 = 25", 1},
      {"overflow: exactly full is not over", 2, 1, {u20}, 0, "N:10 N_2:10 = 20", 0},
      {"overflow: a full last file takes the write", 2, 1, {u20, "12345"}, 0, "N:10 N_2:15 = 25", 1},
  };
  for (const Case& c : cases) {
    OXmlStream out(Wide("N"), 10, c.maxFiles);
    out.SetAllowOverflow(c.overflow);
    std::string all;
    int raised = 0;
    for (const std::string& w : c.writes) {
      all += w == "#" ? "12345" : w;
      raised += Capture([&] { w == "#" ? void(out << 12345L) : out.write(w.data(), static_cast<long>(w.size())); }) ==
                "!full";
    }
    EXPECT_EQ(raised, c.raised) << c.name;
    EXPECT_EQ(out.Overflowed(), c.overflowed) << c.name;
    out.Close();
    std::string joined;
    EXPECT_EQ(Listed(out, &joined), c.listed) << c.name;
    EXPECT_EQ(joined, all.substr(0, joined.size())) << c.name;
    out.Delete_Created_Files(1);
    EXPECT_TRUE(Exists(Path("N"))) << c.name;
    EXPECT_FALSE(Exists(Path("N_2"))) << c.name;
    out.Delete_Created_Files(0);
    EXPECT_EQ(Listed(out), "= 0") << c.name;
    EXPECT_FALSE(Exists(Path("N"))) << c.name;
  }
}

TEST_F(SeriesTest, LimitsOfMemoryAndCallersStreams) {
  // The room is taken on the low 32 bits of the limit.
  for (const long long limit : {4LL, (1LL << 32) + 3}) {
    const std::string fitted(std::string("abcdef"), 0, static_cast<std::size_t>(limit & 0xFF));
    OXmlStream memory(limit);
    std::ofstream file(Path("caller"));
    OXmlStream toFile(file, limit);
    for (OXmlStream* out : {&memory, &toFile})
      EXPECT_EQ(Capture([&] { out->write("abcdef", 6); }), "!full") << limit;
    toFile.Close();
    EXPECT_EQ(memory.Str(), fitted);
    EXPECT_EQ(Read(Path("caller")), fitted);
  }
  // A series limit with no room on 32 bits raises rather than making empty
  // files without end.
  OXmlStream noRoom(Wide("N"), 1LL << 32, 0);
  EXPECT_EQ(Capture([&] { noRoom.write("a", 1); }), "!full");
  noRoom.Close();
  EXPECT_EQ(Listed(noRoom), "N:0 = 0");
}

TEST_F(SeriesTest, OpenAndWriteFailures) {
  const std::string kWriteFailed = "!27320 Writing to the output failed. @xmlstream";
  EXPECT_EQ(Capture([&] { OXmlStream out(Wide("missing/N"), 10, 1); }),
            "!27304 Cannot open the output file " + Path("missing/N") + ": No such file or directory. @xmlstream");

  // The folder of the series goes away: the next file cannot be opened, and
  // the first write into it fails; the file is counted all the same.
  ASSERT_EQ(::mkdir(Path("sub").c_str(), 0700), 0);
  OXmlStream out(Wide("sub/N"), 4, 0);
  out.write("abcd", 4);
  ASSERT_EQ(std::remove(Path("sub/N").c_str()), 0);
  ASSERT_EQ(::rmdir(Path("sub").c_str()), 0);
  EXPECT_EQ(Capture([&] { out.write("e", 1); }), kWriteFailed);
  EXPECT_EQ(out.GetWriteErrors(), 1);
  EXPECT_EQ(Listed(out), "sub/N:0 sub/N_2:0 = 0");

  // Closed files, a series' or a caller's, take neither bytes nor numbers.
  OXmlStream closed(Wide("N"), 0, 1);
  closed.Close();
  std::ofstream file(Path("caller"));
  OXmlStream toFile(file, 0);
  toFile.Close();
  EXPECT_EQ(Capture([&] { closed.write("x", 1); }), kWriteFailed);
  EXPECT_EQ(Capture([&] { closed << 5L; }), kWriteFailed);
  EXPECT_EQ(Capture([&] { toFile.write("x", 1); }), kWriteFailed);
  EXPECT_EQ(closed.GetWriteErrors(), 2);

  // Bytes that reach a full device only with the final flush are counted
  // as a failed write.
  if (!Exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  OXmlStream full(NX_U16(u"/dev/full"), 0, 1);
  full.write("x", 1);
  full.Close();
  EXPECT_EQ(full.GetWriteErrors(), 1);
}

}  // namespace
