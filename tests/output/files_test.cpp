// Size-limited output: the cut at the limit, the series of files, the
// maximum number of files with and without overflow, write errors.
#include <sys/stat.h>

#include "output/output_fixtures.h"

namespace {

class SeriesTest : public TempDir {
 protected:
  Obx_String Base() const { return Wide(Path("N")); }
  // The files the stream lists, each "name:size", and the total.
  std::string Listed(OXmlStream& out) {
    CStringArray files;
    const double total = out.Get_Created_Files(files);
    std::string listed;
    for (int k = 0; k < files.GetSize(); ++k) {
      const std::string name = files[k].ToUtf8();
      listed += name.substr(m_dir.size() + 1) + ":" + std::to_string(ReadFile(name).size()) + " ";
    }
    return listed + "= " + std::to_string(static_cast<long long>(total));
  }
};

TEST_F(SeriesTest, CutsExactlyAtTheLimit) {
  struct Case {
    const char* name;
    std::vector<std::string> writes;
    int maxFiles;
    const char* listed;
  };
  const std::string u25(25, 'u');
  const Case cases[] = {
      {"one write over three files", {u25}, 3, "N:10 N_2:10 N_3:5 = 25"},
      {"ending at the limit opens no file", {"0123456789"}, 3, "N:10 = 10"},
      {"the next write does", {"0123456789", "a"}, 3, "N:10 N_2:1 = 11"},
      {"a character split between files", {"012345678", "\xE4\xB8\xAD!"}, 0, "N:10 N_2:3 = 13"},
      {"no limit on the number of files", {u25, u25}, 0, "N:10 N_2:10 N_3:10 N_4:10 N_5:10 = 50"},
      {"numbers are not counted", {"0123456789", "#"}, 1, "N:15 = 15"},
      {"empty writes", {"", "0123456789", ""}, 1, "N:10 = 10"},
  };
  for (const Case& c : cases) {
    std::string all;
    {
      OXmlStream out(Base(), 10, c.maxFiles);
      for (const std::string& w : c.writes) {
        // "#" stands for a number, which bypasses the limit.
        if (w == "#") {
          out << 12345L;
          all += "12345";
          continue;
        }
        out.write(w.data(), static_cast<long>(w.size()));
        all += w;
      }
      out.Close();
      EXPECT_EQ(Listed(out), c.listed) << c.name;
      CStringArray files;
      out.Get_Created_Files(files);
      std::string joined;
      for (int k = 0; k < files.GetSize(); ++k) joined += ReadFile(files[k].ToUtf8());
      EXPECT_EQ(joined, all) << c.name;
      out.Delete_Created_Files(0);
    }
    EXPECT_FALSE(FileExists(Path("N"))) << c.name;
  }
}

TEST_F(SeriesTest, MaximumNumberOfFiles) {
  {
    OXmlStream out(Base(), 10, 1);
    out.write("0123456789", 10);
    EXPECT_TRUE(RaisesXmlException([&] { out.write("a", 1); }));
    EXPECT_TRUE(RaisesXmlException([&] { out.write("bc", 2); }));  // the file stays open and full
    out.Close();
    EXPECT_EQ(Listed(out), "N:10 = 10");
    EXPECT_EQ(out.Overflowed(), 0);
  }
  {
    OXmlStream out(Base(), 10, 2);
    EXPECT_TRUE(RaisesXmlException([&] { out.write(std::string(25, 'x').data(), 25); }));
    out.Close();
    EXPECT_EQ(Listed(out), "N:10 N_2:10 = 20");  // what fitted was written
  }
  {
    // Overflow allowed: files beyond the maximum rather than data refused.
    OXmlStream out(Base(), 10, 2);
    out.SetAllowOverflow(1);
    EXPECT_EQ(out.GetAllowOverflow(), 1);
    out.write(std::string(25, 'x').data(), 25);
    EXPECT_EQ(out.Overflowed(), 1);
    out.Close();
    EXPECT_EQ(Listed(out), "N:10 N_2:10 N_3:5 = 25");
  }
  {
    // A last file that is exactly full takes the whole next write.
    OXmlStream out(Base(), 10, 2);
    out.SetAllowOverflow(1);
    out.write(std::string(20, 'x').data(), 20);
    EXPECT_EQ(out.Overflowed(), 0);
    out.write("12345", 5);
    EXPECT_EQ(out.Overflowed(), 1);
    out.Close();
    EXPECT_EQ(Listed(out), "N:10 N_2:15 = 25");
  }
}

TEST_F(SeriesTest, LimitsOfMemoryAndCallersStreams) {
  OXmlStream memory(4LL);
  EXPECT_TRUE(RaisesXmlException([&] { memory.write("abcdef", 6); }));
  EXPECT_EQ(memory.Str(), "abcd");

  std::ostringstream strings;
  OXmlStream toStrings(strings, 4);
  toStrings.write("ab", 2);
  toStrings << 12345L;  // numbers are neither counted nor limited
  toStrings.write("cd", 2);
  EXPECT_TRUE(RaisesXmlException([&] { toStrings << NX_U16(u"\u00e9"); }));
  EXPECT_EQ(strings.str(), "ab12345cd");

  std::ofstream file(Path("caller"));
  OXmlStream toFile(file, 3);
  EXPECT_TRUE(RaisesXmlException([&] { toFile.write("abcd", 4); }));
  toFile.Close();
  EXPECT_EQ(ReadFile(Path("caller")), "abc");

  // The room is taken on the low 32 bits of the limit.
  OXmlStream wide((1LL << 32) + 3);
  EXPECT_TRUE(RaisesXmlException([&] { wide.write("abcd", 4); }));
  EXPECT_EQ(wide.Str(), "abc");
  // Regression: a limit with no room on 32 bits made empty files without end.
  OXmlStream noRoom(Base(), 1LL << 32, 0);
  EXPECT_TRUE(RaisesXmlException([&] { noRoom.write("a", 1); }));
  noRoom.Close();
  EXPECT_EQ(Listed(noRoom), "N:0 = 0");
}

TEST_F(SeriesTest, ListingAndDeleting) {
  OXmlStream out(Base(), 4, 0);
  out.write("aaaabbbbcc", 10);
  out.Close();
  EXPECT_EQ(Listed(out), "N:4 N_2:4 N_3:2 = 10");
  out.Delete_Created_Files(1);
  EXPECT_TRUE(FileExists(Path("N")));
  EXPECT_FALSE(FileExists(Path("N_2")));
  EXPECT_FALSE(FileExists(Path("N_3")));
  EXPECT_EQ(Listed(out), "N:4 = 4");
  out.Delete_Created_Files(0);
  EXPECT_FALSE(FileExists(Path("N")));
  EXPECT_EQ(Listed(out), "= 0");
}

TEST_F(SeriesTest, OpenAndWriteFailures) {
  const Outcome cannotOpen = Capture([&] {
    try {
      OXmlStream out(Wide(Path("missing/N")), 10, 1);
    } catch (QmMsgException* e) {
      EXPECT_EQ(e->GetMessage(0).GetParam("%_ARG1_%").ToUtf8(), Path("missing/N"));
      throw;
    }
    return std::string();
  });
  EXPECT_TRUE(cannotOpen.raised);
  EXPECT_EQ(cannotOpen.id, 27304);

  // The folder of the series goes away: the next file cannot be opened, and
  // the first write into it fails; the file is counted all the same.
  const std::string folder = Path("sub");
  ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
  OXmlStream out(Wide(folder + "/N"), 4, 0);
  out.write("abcd", 4);
  ASSERT_EQ(std::remove((folder + "/N").c_str()), 0);
  ASSERT_EQ(::rmdir(folder.c_str()), 0);
  const Outcome failed = Capture([&] {
    out.write("e", 1);
    return std::string();
  });
  EXPECT_EQ(failed.id, 27320);
  EXPECT_EQ(failed.text, "");
  EXPECT_EQ(out.GetWriteErrors(), 1);
  CStringArray files;
  out.Get_Created_Files(files);
  EXPECT_EQ(files.GetSize(), 2);

  // A closed series has no file to write to.
  OXmlStream closed(Base(), 0, 1);
  closed.Close();
  EXPECT_EQ(Capture([&] {
              closed.write("x", 1);
              return std::string();
            }).id,
            27320);
  EXPECT_EQ(Capture([&] {
              closed << 5L;
              return std::string();
            }).id,
            27320);
  EXPECT_EQ(closed.GetWriteErrors(), 2);

  // A caller's file closed by Close() stays with its caller, closed.
  std::ofstream file(Path("caller"));
  OXmlStream toFile(file, 0);
  toFile.Close();
  EXPECT_EQ(Capture([&] {
              toFile.write("x", 1);
              return std::string();
            }).id,
            27320);
}

TEST_F(SeriesTest, FullDevice) {
  if (!FileExists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  OXmlStream out(NX_U16(u"/dev/full"), 0, 1);
  const std::string block(1 << 16, 'x');
  const Outcome failed = Capture([&] {
    // The stream buffers: the device refuses the bytes when they leave it.
    for (int k = 0; k < 8; ++k) out.write(block.data(), static_cast<long>(block.size()));
    return std::string();
  });
  EXPECT_EQ(failed.id, 27320);
  EXPECT_EQ(out.GetWriteErrors(), 1);

  // Bytes that only the final flush would write are counted as failed too.
  OXmlStream small(NX_U16(u"/dev/full"), 0, 1);
  small.write("x", 1);
  small.Close();
  EXPECT_EQ(small.GetWriteErrors(), 1);
}

}  // namespace
