// Formats in the platform's notation.
#include "Foundation/Base/Format.h"

#include <gtest/gtest.h>

namespace {

using NS::stringWithFormat;

TEST(Format, replacesEachConversionByTheNextArgument) {
  EXPECT_EQ(stringWithFormat("%@ has %d and %llu", "a", -1, 2U), "a has -1 and 2");
  EXPECT_EQ(stringWithFormat("no conversion", "a"), "no conversion");
}

TEST(Format, readsTwoPercentSignsAsOne) {
  EXPECT_EQ(stringWithFormat("%% and %@%%", "50"), "% and 50%");
  EXPECT_EQ(stringWithFormat("%%@", "not this"), "%@");
  EXPECT_EQ(stringWithFormat("100%%"), "100%");
}

TEST(Format, leavesOtherPercentSignsUnchanged) {
  EXPECT_EQ(stringWithFormat("%@ and %@", "one"), "one and %@");
  EXPECT_EQ(stringWithFormat("100%", "a"), "100%");
  EXPECT_EQ(stringWithFormat("%! %@", "a"), "%! a");
  EXPECT_EQ(stringWithFormat("%ll", 7), "%ll");
}

TEST(Format, readsModifiersBeforeAConversion) {
  EXPECT_EQ(stringWithFormat("%5.2f and %-10s", "a", "b"), "a and b");
}

TEST(Format, writesAnArrayWithOneElementALine) {
  EXPECT_EQ(stringWithFormat("%@", std::vector<std::string>{"/a:b_c$1.txt", "b"}),
            "(\n    /a:b_c$1.txt,\n    b\n)");
  EXPECT_EQ(stringWithFormat("%@", std::vector<std::string>()), "(\n)");
}

TEST(Format, quotesTheElementsOfAnArrayThatAreNotOneWord) {
  EXPECT_EQ(stringWithFormat("%@", std::vector<std::string>{"two words", "", "a\"b\\c"}),
            "(\n    \"two words\",\n    \"\",\n    \"a\\\"b\\\\c\"\n)");
}

} // namespace
