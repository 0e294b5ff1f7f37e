#include <gtest/gtest.h>

#include <climits>

#include "nxstrings.h"

TEST(ObxString, Utf8RoundTripAndLength) {
  const Obx_String s = Obx_String::FromUtf8("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
  EXPECT_EQ(s.GetLength(), 5);  // a, é, 中, and a surrogate pair
  EXPECT_EQ(s.ToUtf8(), "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
  EXPECT_EQ(s.GetData()[s.GetLength()], 0);
  EXPECT_EQ(Obx_String::FromUtf8("a\xFF" "b").ToUtf8(), "a\xEF\xBF\xBD" "b");
}
