// What is read is written back unchanged: the tokens of an input, written
// to memory and read again, are the same tokens; written to a series of
// small files (the first byte picks the limit), the files joined hold the
// very bytes written to memory.
#include <fstream>
#include <iterator>

#include "fuzz_common.h"

namespace {

std::vector<std::string> Tokens(IXmlStream& in, std::vector<NXSmartPtr<XmlToken>>* keep) {
  std::vector<std::string> out;
  fuzz::ReadToTheEnd(in, [&](const XmlToken& token) {
    out.push_back(fuzz::Describe(token));
    if (keep) keep->emplace_back(const_cast<XmlToken*>(&token));
  });
  // Text that expat holds back at the end of an unfinished input ("]",
  // which might open "]]>") comes out of Finish as a token of its own:
  // the text read is the same, its cut is not.
  const std::size_t n = out.size();
  if (n >= 2 && out[n - 2][0] == 'T' && out[n - 1][0] == 'T') {
    out[n - 2] += out[n - 1].substr(2);
    out.pop_back();
  }
  return out;
}

// What reading the written tokens gives: the reader takes the first line
// feed after a tag as layout, and the writer adds one only after a start
// tag with attributes, so a text that starts with a line feed after any
// other tag loses it (and vanishes when nothing else is left).
std::vector<std::string> AsReadBack(const std::vector<std::string>& tokens) {
  std::vector<std::string> out;
  for (std::size_t k = 0; k < tokens.size(); ++k) {
    std::string token = tokens[k];
    const bool afterTag = k > 0 && tokens[k - 1][0] != 'T';
    const bool lineEnded = k > 0 && tokens[k - 1][0] == 'S' && tokens[k - 1].find(' ', 2) != std::string::npos;
    if (token.compare(0, 3, "T \n") == 0 && afterTag && !lineEnded && token.erase(2, 1).size() == 2) continue;
    out.push_back(token);
  }
  return out;
}

std::string Join(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  std::istringstream source(fuzz::Bytes(data + 1, size - 1));
  std::vector<NXSmartPtr<XmlToken>> tokens;  // outlive the stream that read them
  std::vector<std::string> expected;
  {
    IXmlStream in(source);
    expected = AsReadBack(Tokens(in, &tokens));
  }

  OXmlStream memory(0LL);
  for (const auto& token : tokens) memory << *token;
  const std::string written = memory.Str();
  std::istringstream again(written);
  IXmlStream back(again);
  const std::vector<std::string> reread = Tokens(back, nullptr);
  if (reread != expected) fuzz::Fail("tokens written to memory read back otherwise", Join(expected), Join(reread));

  // The same bytes read the same: reading files joined is the joined
  // reader's target.
  OXmlStream series(Obx_String::FromUtf8((fuzz::ScratchFolder() + "/series").c_str()), 8 + data[0], 0);
  for (const auto& token : tokens) series << *token;
  series.Close();
  CStringArray files;
  series.Get_Created_Files(files);
  std::string joined;
  for (int k = 0; k < files.GetSize(); ++k) {
    std::ifstream file(files[k].ToUtf8(), std::ios::binary);
    joined.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  if (joined != written) fuzz::Fail("a file series holds other bytes than memory", written, joined);
  series.Delete_Created_Files(0);
  return 0;
}
