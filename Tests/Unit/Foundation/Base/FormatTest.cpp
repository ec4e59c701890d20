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
}

TEST(Format, leavesOtherPercentSignsUnchanged) {
  EXPECT_EQ(stringWithFormat("%@ and %@", "one"), "one and %@");
  EXPECT_EQ(stringWithFormat("100%", "a"), "100%");
  EXPECT_EQ(stringWithFormat("%! %@", "a"), "%! a");
  EXPECT_EQ(stringWithFormat("%ll", 7), "%ll");
}

} // namespace
