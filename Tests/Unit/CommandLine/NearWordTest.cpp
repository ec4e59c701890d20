// Which word is near to a mistyped one.
#include "CommandLine/NearWord.h"

#include <gtest/gtest.h>

namespace {

using kw::nearWord;

TEST(NearWord, countsASwapOfNeighboursAsOneChange) {
  EXPECT_EQ(nearWord("ehco", {"ehxx", "echo"}), "echo");
  EXPECT_EQ(nearWord("ecoh", {"ecxx", "echo"}), "echo");
  EXPECT_EQ(nearWord("ceho", {"cexx", "echo"}), "echo") << "the first two";
}

TEST(NearWord, countsAMissingAFurtherAndAnotherLetterAsOneChangeEach) {
  for (const char *given : {"ech", "echoo", "ecko", "cho"})
    EXPECT_EQ(nearWord(given, {"size", "echo", "exists"}), "echo") << given;
  EXPECT_EQ(nearWord("echoo", {"ecxxo", "echo"}), "echo") << "the other has two changes";
  EXPECT_EQ(nearWord("ech", {"exx", "echo"}), "echo") << "the other has two changes";
}

TEST(NearWord, isTheFirstOfSeveral) {
  EXPECT_EQ(nearWord("sizx", {"sizy", "size"}), "sizy");
}

TEST(NearWord, beginsRatherWithTheSameLetter) {
  EXPECT_EQ(nearWord("rmove", {"move", "remove"}), "remove");
  EXPECT_EQ(nearWord("rmove", {"remove", "move"}), "remove");
}

TEST(NearWord, isNoneWhereAThirdOfTheLettersIsWrong) {
  EXPECT_EQ(nearWord("abcdef", {"abcxyz"}), "abcxyz") << "three of six";
  EXPECT_EQ(nearWord("abcdef", {"abwxyz"}), "") << "four";
  EXPECT_EQ(nearWord("abcdefghijkl", {"abcdefghwxyz"}), "") << "four of twelve";
  EXPECT_EQ(nearWord("ab", {"cd"}), "") << "nothing in common";
  EXPECT_EQ(nearWord("ab", {"cdb"}), "") << "two of two";
  EXPECT_EQ(nearWord("a", {"b"}), "") << "the only one";
  EXPECT_EQ(nearWord("", {"echo"}), "");
}

TEST(NearWord, readsNothingBeforeTheGivenWord) {
  std::string_view within("oech");
  EXPECT_EQ(nearWord(within.substr(1), {"eo", "echo"}), "echo");
}

TEST(NearWord, isNoneOfALongWord) {
  std::string word(64, 'a');
  EXPECT_EQ(nearWord(word + "b", {word}), "");
  EXPECT_EQ(nearWord(word, {word + "b"}), word + "b");
}

} // namespace
