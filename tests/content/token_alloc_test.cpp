#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "sanitizer.h"
#include "xmlcontent.h"

namespace {

// A token larger than any the library makes, and one of an odd size.
struct BigText : XmlCharData {
  BigText() : XmlCharData(NX_U16(u"big")) {}
  char padding[1000] = {};
};
struct OddTag : XmlETag {
  OddTag() : XmlETag(NX_U16(u"odd")) {}
  char extra[3] = {'a', 'b', 'c'};
};

// Freed blocks come back only for tokens of their own size, with nothing of
// the previous token showing through, also across threads: a token made on
// one thread is freed on another after its maker has ended.
TEST(TokenAllocation, ReusedBlocksServeTheirOwnSizeOnly) {
  const auto make = [](int k) -> XmlToken* {
    switch (k % 5) {
      case 0: return new XmlSTag(NX_U16(u"s"));
      case 1: return new XmlETag(NX_U16(u"e"));
      case 2: return new XmlCharData(NX_U16(u"text of a token"));
      case 3: return new OddTag();
      default: return new BigText();
    }
  };
  const auto check = [](int k, XmlToken* t) {
    switch (k % 5) {
      case 0: return static_cast<XmlSTag*>(t)->GetName() == u"s";
      case 1: return static_cast<XmlETag*>(t)->GetName() == u"e";
      case 2: return static_cast<XmlCharData*>(t)->GetData() == u"text of a token";
      case 3: return std::string(static_cast<OddTag*>(t)->extra, 3) == "abc";
      default: return static_cast<BigText*>(t)->GetData() == u"big";
    }
  };
  for (int round = 0; round < 4; ++round) {
    std::vector<XmlToken*> tokens;
    std::thread maker([&] {
      for (int k = 0; k < 2100; ++k) tokens.push_back(make(k));
      for (int k = 0; k < 100; ++k, tokens.pop_back()) delete tokens.back();  // its cache filled as it ends
    });
    maker.join();
    for (int k = 0; k < 2000; ++k) ASSERT_TRUE(check(k, tokens[static_cast<std::size_t>(k)])) << k;
    // Freed in another order than made, half on another thread.
    std::thread freer([&] {
      for (std::size_t k = tokens.size(); k-- > 0;)
        if (k % 2 == 0) delete tokens[k];
    });
    freer.join();
    for (std::size_t k = 1; k < tokens.size(); k += 2) delete tokens[k];
  }
}

// Under the address sanitizer a parked block is poisoned whole, so a token
// used after it was freed is caught even though its memory is kept, and a
// block handed out again is whole again.
TEST(TokenAllocation, ParkedBlocksArePoisonedUntilReused) {
#if NXXML_ASAN
  XmlETag* tag = new XmlETag(NX_U16(u"parked"));
  const char* bytes = reinterpret_cast<const char*>(tag);
  delete tag;
  for (std::size_t k = 0; k < sizeof(XmlETag); ++k)
    ASSERT_TRUE(__asan_address_is_poisoned(bytes + k)) << "byte " << k;
  XmlETag* again = new XmlETag(NX_U16(u"again"));
  ASSERT_EQ(static_cast<const void*>(again), static_cast<const void*>(bytes));  // the parked block, reused
  EXPECT_EQ(__asan_region_is_poisoned(again, sizeof(XmlETag)), nullptr);
  EXPECT_EQ(again->GetName(), u"again");
  delete again;
#else
  GTEST_SKIP() << "only the address sanitizer poisons";
#endif
}

// The usual forms of new still work for tokens.
TEST(TokenAllocation, PlacementAndNothrowForms) {
  alignas(XmlCharData) unsigned char place[sizeof(XmlCharData)];
  XmlCharData* placed = new (place) XmlCharData(NX_U16(u"placed"));
  EXPECT_EQ(placed->GetData(), u"placed");
  placed->~XmlCharData();
  std::unique_ptr<XmlETag> tag(new (std::nothrow) XmlETag(NX_U16(u"n")));
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->GetName(), u"n");
}

}  // namespace
