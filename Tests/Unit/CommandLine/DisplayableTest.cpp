// The characters that a terminal gets, and those that it does not get.
#include "CommandLine/Displayable.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using kw::displayable;
using kw::endOf;

// Each of a range, and neither neighbour.
TEST(HiddenCharacter, isAControlATurnOfTheTextOrAnEndOfALine) {
  for (auto [first, last] : {std::pair<char32_t, char32_t>{0, 0x1f},
                             {0x7f, 0x9f},
                             {0x61c, 0x61c},
                             {0x200e, 0x200f},
                             {0x2028, 0x202e},
                             {0x2066, 0x2069}}) {
    for (char32_t each = first; each <= last; ++each)
      EXPECT_TRUE(kw::isHiddenCharacter(each)) << static_cast<unsigned>(each);
    EXPECT_TRUE(first == 0 || !kw::isHiddenCharacter(first - 1)) << static_cast<unsigned>(first);
    EXPECT_FALSE(kw::isHiddenCharacter(last + 1)) << static_cast<unsigned>(last);
  }
}

TEST(Displayable, escapesControlsAndKeepsOtherText) {
  EXPECT_EQ(displayable("a ~é\u00a0"), "a ~é\u00a0");
  EXPECT_EQ(displayable("\x1b[31m\n\x7f"), "\\x1b[31m\\x0a\\x7f");
  EXPECT_EQ(displayable("\u0080\u009f\u202e"), "\\u0080\\u009f\\u202e");
  EXPECT_EQ(displayable("a\\x"), "a\\\\x");
  EXPECT_EQ(displayable("\xff\xe2\x80"), "\\xff\\xe2\\x80");
}

TEST(EndOfText, fillsTheRoomAndCutsNoCharacter) {
  EXPECT_EQ(endOf("abcdefgh", 8), "abcdefgh");
  EXPECT_EQ(endOf("abcdefghi", 8), "...efghi");
  EXPECT_EQ(endOf("abcdéfghi", 8), "...fghi") << "of the accented letter there is no part";
  EXPECT_EQ(endOf("abcdeéghi", 8), "...éghi");
  EXPECT_EQ(endOf("abcdefgh\x80\x80", 5), "...") << "the rest is no character";
}

} // namespace
