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
// the previous token showing through.
TEST(TokenAllocation, ReusedBlocksServeTheirOwnSizeOnly) {
  for (int round = 0; round < 3; ++round) {
    std::vector<XmlToken*> tokens;
    for (int k = 0; k < 2000; ++k) {
      switch (k % 5) {
        case 0: tokens.push_back(new XmlSTag(NX_U16(u"s"))); break;
        case 1: tokens.push_back(new XmlETag(NX_U16(u"e"))); break;
        case 2: tokens.push_back(new XmlCharData(NX_U16(u"text of a token"))); break;
        case 3: tokens.push_back(new OddTag()); break;
        default: tokens.push_back(new BigText()); break;
      }
    }
    for (int k = 0; k < 2000; ++k) {
      XmlToken* t = tokens[static_cast<std::size_t>(k)];
      switch (k % 5) {
        case 0: EXPECT_EQ(static_cast<XmlSTag*>(t)->GetName(), u"s"); break;
        case 1: EXPECT_EQ(static_cast<XmlETag*>(t)->GetName(), u"e"); break;
        case 2: EXPECT_EQ(static_cast<XmlCharData*>(t)->GetData(), u"text of a token"); break;
        case 3: EXPECT_EQ(std::string(static_cast<OddTag*>(t)->extra, 3), "abc"); break;
        default: EXPECT_EQ(static_cast<BigText*>(t)->GetData(), u"big"); break;
      }
    }
    // Freed in another order than made.
    for (std::size_t k = tokens.size(); k-- > 0;)
      if (k % 2 == 0) delete tokens[k];
    for (std::size_t k = 0; k < tokens.size(); ++k)
      if (k % 2 == 1) delete tokens[k];
  }
}

// A token made on one thread may be freed on another, also after the
// thread that made it has ended, and tokens outlive the thread that freed
// others of their size.
TEST(TokenAllocation, TokensCrossThreads) {
  std::vector<XmlToken*> made;
  std::thread maker([&] {
    for (int k = 0; k < 500; ++k) made.push_back(new XmlCharData(NX_U16(u"from the maker")));
    // Some freed here, to fill this thread's cache before it ends.
    for (int k = 0; k < 100; ++k) {
      delete made.back();
      made.pop_back();
    }
  });
  maker.join();
  std::thread freer([&] {
    for (XmlToken* t : made) delete t;
  });
  freer.join();
  NXSmartPtr<XmlCharData> kept(new XmlCharData(NX_U16(u"kept")));
  EXPECT_EQ(kept->GetData(), u"kept");
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

  XmlETag* tag = new (std::nothrow) XmlETag(NX_U16(u"n"));
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->GetName(), u"n");
  delete tag;

  std::unique_ptr<XmlSTag> owned(new XmlSTag(NX_U16(u"u")));
  EXPECT_EQ(owned->GetName(), u"u");
}

}  // namespace
