// Text cut in the middle, and the log that is bounded by it.
#include "Foundation/Base/BoundedText.h"
#include "Foundation/Base/Log.h"

#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

namespace {

using NS::boundedText;

TEST(BoundedText, leavesTextThatFits) {
  EXPECT_EQ(boundedText("", 0), "");
  EXPECT_EQ(boundedText("abcd", 4), "abcd");
}

TEST(BoundedText, keepsBeginningAndEndAndSaysHowMuchIsLeftOut) {
  EXPECT_EQ(boundedText("abcdefghij", 4), "ab[… 6 bytes …]ij");
}

TEST(BoundedText, cutsNoCharacterInTwo) {
  EXPECT_EQ(boundedText("aé" + std::string(10, 'x') + "éb", 4), "a[… 14 bytes …]b");
  // Four bytes each: nothing of the first and last fits.
  EXPECT_EQ(boundedText("😀😀😀", 4), "[… 12 bytes …]");
  EXPECT_EQ(boundedText("😀😀😀", 6), "[… 12 bytes …]");
  EXPECT_EQ(boundedText("😀😀😀", 8), "😀[… 4 bytes …]😀");
}

TEST(BoundedText, leavesOutOnlyTheTextItself) {
  // The bytes after the text look like the rest of a character.
  EXPECT_EQ(boundedText(std::string_view("ab\x80\x80", 2), 0), "[… 2 bytes …]");
}

TEST(BoundedText, boundsInvalidUTF8AsWell) {
  // No character has more than three bytes after its first one.
  EXPECT_EQ(boundedText(std::string(1000, '\x80'), 100),
            std::string(47, '\x80') + "[… 906 bytes …]" + std::string(47, '\x80'));
  EXPECT_LE(boundedText(std::string(1000, '\xff'), 100).size(), 140u);
}

TEST(Log, isBoundedInLength) {
  kwtest::LogRecorder log;
  NS::Log("%s: %s", std::string(20'000'000, 'x'), "No such file");
  ASSERT_EQ(log.lines().size(), 1u);
  std::string line = log.lines()[0];
  EXPECT_LE(line.size(), NS::longestLogMessage + 40);
  EXPECT_TRUE(line.ends_with("xx: No such file"));
  EXPECT_NE(line.find(" bytes …]"), std::string::npos);
}

// An argument whose text takes more memory than there is.
struct Immense {};
std::string describe(const Immense &) {
  throw std::bad_alloc();
}

TEST(Log, losesALineThatItHasNoMemoryFor) {
  kwtest::LogRecorder log;
  EXPECT_NO_THROW(NS::Log("%@", Immense()));
  NS::Log("the next one");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"the next one"});
}

} // namespace
