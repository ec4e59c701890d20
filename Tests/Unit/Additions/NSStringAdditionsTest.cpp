// The additions to strings: texts, names and lists.
#include "Additions/NSStringAdditions.h"

#include <gtest/gtest.h>

namespace {

using NS::ComparisonResult;

constexpr const char *ascendingNames[] = {"Foo 2", "foo2", "FOO   12", "my foo 3 copy", "food"};

TEST(TrimWhiteSpace, takesSpacesAndLineBreaksFromBothEnds) {
  EXPECT_EQ(kw::trimWhiteSpace(" \t\r\n a b \n\v\f"), "a b");
  EXPECT_EQ(kw::trimWhiteSpace("a"), "a");
  EXPECT_EQ(kw::trimWhiteSpace(""), "");
  EXPECT_EQ(kw::trimWhiteSpace(" \n "), "");
}

TEST(TrimWhiteSpace, knowsTheSpacesOfUnicode) {
  EXPECT_EQ(kw::trimWhiteSpace("\u00a0\u2003\u3000é\u2028\u2029\u0085\u200b"), "é");
  EXPECT_EQ(kw::trimWhiteSpace("\ufeff"), "\ufeff") << "a byte order mark is no space";
}

TEST(TrimWhiteSpace, stopsAtBytesOfInvalidUTF8) {
  EXPECT_EQ(kw::trimWhiteSpace(" \xa0 "), "\xa0");
  EXPECT_EQ(kw::trimWhiteSpace(" \xe2\x80 "), "\xe2\x80");
}

TEST(StringIsEmpty, isTrueForNilNothingAndBlanks) {
  EXPECT_TRUE(kw::stringIsEmpty(std::nullopt));
  EXPECT_TRUE(kw::stringIsEmpty(""));
  EXPECT_TRUE(kw::stringIsEmpty("  \n"));
  EXPECT_FALSE(kw::stringIsEmpty(" a "));
}

TEST(IsNumeric, holdsWhenNothingButDigitsIsThere) {
  EXPECT_TRUE(kw::isNumeric(""));
  EXPECT_TRUE(kw::isNumeric("0123456789"));
  EXPECT_FALSE(kw::isNumeric("12a"));
  EXPECT_FALSE(kw::isNumeric("-1"));
  EXPECT_FALSE(kw::isNumeric(" 1"));
}

TEST(IsNumeric, countsTheDecimalDigitsOfEveryScript) {
  EXPECT_TRUE(kw::isNumeric("٠١٢٣")) << "Arabic-Indic";
  EXPECT_TRUE(kw::isNumeric("०१२")) << "Devanagari";
  EXPECT_TRUE(kw::isNumeric("𝟘𝟙")) << "beyond the basic plane";
  EXPECT_FALSE(kw::isNumeric("½"));
  EXPECT_FALSE(kw::isNumeric("Ⅳ")) << "a number, but no digit";
  EXPECT_FALSE(kw::isNumeric("1\xff"));
}

TEST(StringByRemovingSpaces, removesSpacesAndPunctuation) {
  EXPECT_EQ(kw::stringByRemovingSpaces(" a-b_c,d.e:f;g\nh"), "abcdefgh");
  EXPECT_EQ(kw::stringByRemovingSpaces("a\tb!"), "a\tb!") << "the tab is not among them";
  EXPECT_EQ(kw::stringByRemovingSpaces("\xff é"), "\xffé");
}

TEST(StringWithCapitalizedFirstLetter, changesTheFirstLetterAlone) {
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("foo bar"), "Foo bar");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("fOO"), "FOO");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("1a"), "1a");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter(""), "");
}

TEST(StringWithCapitalizedFirstLetter, usesTheTitleFormOfALetter) {
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("éa"), "Éa");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("e\u0301a"), "E\u0301a");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("ßa"), "Ssa");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("ǆa"), "ǅa");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("istanbul"), "Istanbul");
}

TEST(StringWithCapitalizedFirstLetter, leavesALetterThatTakesTwoUnits) {
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("𐐨𐐨"), "𐐨𐐨");
}

TEST(StringWithCapitalizedFirstLetter, leavesAByteOfInvalidUTF8) {
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("\xc3"), "\xc3");
  EXPECT_EQ(kw::stringWithCapitalizedFirstLetter("\xffoo"), "\xffoo");
}

TEST(StringWithSubstitute, replacesEveryCharacterOfTheSet) {
  auto set = NS::CharacterSet::characterSetWithCharactersInString("/:é𝟘");
  EXPECT_EQ(kw::stringWithSubstitute("a/b:c", "-", set), "a-b-c");
  EXPECT_EQ(kw::stringWithSubstitute("/é𝟘\xc3", "--", set), "------\xc3");
  EXPECT_EQ(kw::stringWithSubstitute("a/b", "", set), "ab");
  EXPECT_EQ(kw::stringWithSubstitute("abc", "-", set), "abc");
  EXPECT_EQ(kw::stringWithSubstitute("", "-", set), "");
}

TEST(StringWithSubstitute, endsThoughTheSubstituteHoldsACharacterOfTheSet) {
  auto set = NS::CharacterSet::characterSetWithCharactersInString("/");
  EXPECT_EQ(kw::stringWithSubstitute("a/b", "//", set), "a//b");
}

TEST(StripHTML, writesOneSpaceForEachTagThatCloses) {
  EXPECT_EQ(kw::stripHTML("a<b>c</b>d"), "a c d");
  EXPECT_EQ(kw::stripHTML("plain"), "plain");
  EXPECT_EQ(kw::stripHTML(""), "");
  EXPECT_EQ(kw::stripHTML("<p>"), " ");
}

TEST(StripHTML, writesASingleSpaceForNestedBrackets) {
  EXPECT_EQ(kw::stripHTML("<<a>>"), " ");
}

TEST(StripHTML, hidesTheTextAfterAStrayClosingBracketUpToTheNextOpeningOne) {
  EXPECT_EQ(kw::stripHTML("x>y<z"), "xz");
  EXPECT_EQ(kw::stripHTML(">>y<z<w"), "w") << "each stray bracket needs one of its own";
}

TEST(StripHTML, hidesATagThatIsNeverClosed) {
  EXPECT_EQ(kw::stripHTML("a<b"), "a");
}

TEST(StripHTML, keepsBytesOfInvalidUTF8) {
  EXPECT_EQ(kw::stripHTML("\xff<\xfe>é"), "\xff é");
}

TEST(EllipsizeAfterNWords, keepsTheFirstWordsAndAddsNothing) {
  EXPECT_EQ(kw::ellipsizeAfterNWords("one two three", 2), "one two");
  EXPECT_EQ(kw::ellipsizeAfterNWords("one", 2), "one");
  EXPECT_EQ(kw::ellipsizeAfterNWords("one two", 2), "one two");
  EXPECT_EQ(kw::ellipsizeAfterNWords("one two", 0), "");
  EXPECT_EQ(kw::ellipsizeAfterNWords("", 1), "");
}

TEST(EllipsizeAfterNWords, keepsEverythingForANegativeNumber) {
  EXPECT_EQ(kw::ellipsizeAfterNWords("one two three", -1), "one two three");
}

TEST(EllipsizeAfterNWords, countsTheEmptyPiecesOfARunOfSpaces) {
  EXPECT_EQ(kw::ellipsizeAfterNWords("one  two three", 2), "one ");
  EXPECT_EQ(kw::ellipsizeAfterNWords(" one two", 2), " one");
}

TEST(ContainsString, findsWholeCharactersOnly) {
  EXPECT_TRUE(kw::kws_containsString("a/b", "/"));
  EXPECT_FALSE(kw::kws_containsString("a/b", "B"));
  EXPECT_FALSE(kw::kws_containsString("a", ""));
  EXPECT_FALSE(kw::kws_containsString("", ""));
  EXPECT_TRUE(kw::kws_containsString("cafe\u0301", "é"));
  EXPECT_FALSE(kw::kws_containsString("cafe\u0301", "cafe"));
}

TEST(StringByRemovingSemicolonSeparatedString, takesAPieceOutOfAColonList) {
  EXPECT_EQ(
      kw::stringByRemovingSemicolonSeparatedString(" /a.dylib : /x.dylib:/b.dylib", "/x.dylib"),
      "/a.dylib:/b.dylib");
}

TEST(StringByRemovingSemicolonSeparatedString, takesEveryOccurrence) {
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString("/x:/a:/x: /x ", "/x"), "/a");
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString("/x", "/x"), "");
}

TEST(StringByRemovingSemicolonSeparatedString, keepsEmptyPieces) {
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString(":/a::/x: ", "/x"), ":/a::");
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString("", "/x"), "");
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString(":/a:", ""), "/a");
}

TEST(StringByRemovingSemicolonSeparatedString, separatesAtEveryColonBeforeAnyCharacter) {
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString("/x:\u0301y", "/x"), "\u0301y");
}

TEST(StringByRemovingSemicolonSeparatedString, comparesWholePiecesExactly) {
  EXPECT_EQ(kw::stringByRemovingSemicolonSeparatedString("/x.dylib:/X:x;/x", "/x"),
            "/x.dylib:/X:x;/x");
}

TEST(SubstringWithRangeProtected, givesTheTextOfARangeInsideTheString) {
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {1, 3}), "bcd");
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {2, 3}), "cde") << "ends at the length";
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {5, 0}), "");
}

TEST(SubstringWithRangeProtected, givesNothingForARangeThatEndsBeyondTheString) {
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {2, 4}), "");
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {6, 0}), "");
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {2, static_cast<std::size_t>(-1)}), "");
  EXPECT_EQ(kw::substringWithRangeProtected("abcde", {static_cast<std::size_t>(-1), 2}), "");
}

TEST(SubstringWithRangeProtected, countsUTF16Units) {
  EXPECT_EQ(kw::substringWithRangeProtected("é𐐨b", {0, 1}), "é");
  EXPECT_EQ(kw::substringWithRangeProtected("é𐐨b", {1, 2}), "𐐨");
  EXPECT_EQ(kw::substringWithRangeProtected("é𐐨b", {3, 1}), "b");
  EXPECT_EQ(kw::substringWithRangeProtected("é𐐨b", {1, 1}), "\ufffd") << "half a character";
  EXPECT_EQ(kw::substringWithRangeProtected("é𐐨b", {2, 2}), "\ufffdb");
  EXPECT_EQ(kw::substringWithRangeProtected("a\xff\xfe", {1, 1}), "\xff");
}

std::shared_ptr<const NS::RegularExpression> expression(std::string_view pattern) {
  return NS::RegularExpression::regularExpressionWithPattern(pattern, NS::RegularExpressionNone);
}

TEST(IsMatchedByRegex, looksAnywhereInTheString) {
  EXPECT_TRUE(kw::isMatchedByRegex("/a/b.plist", expression("\\.plist$").get()));
  EXPECT_FALSE(kw::isMatchedByRegex("/a/b.PLIST", expression("\\.plist$").get()));
  EXPECT_TRUE(kw::isMatchedByRegex("", expression("^$").get()));
  EXPECT_FALSE(kw::isMatchedByRegex("a", nullptr));
}

TEST(CompareApplicationResourceName, isSameWhenTheOtherHoldsEveryWord) {
  using kw::compareApplicationResourceNameByWords;
  EXPECT_EQ(compareApplicationResourceNameByWords("foo bar", "Bar Foo Pro", " "),
            ComparisonResult::OrderedSame);
  EXPECT_EQ(compareApplicationResourceNameByWords("FOO", "foo", " "),
            ComparisonResult::OrderedSame);
  EXPECT_EQ(compareApplicationResourceNameByWords("foo.bar", "bar.foo", "."),
            ComparisonResult::OrderedSame);
  EXPECT_EQ(compareApplicationResourceNameByWords("ÉA", "éa b", " "),
            ComparisonResult::OrderedSame);
}

TEST(CompareApplicationResourceName, isAscendingForNumberedCopiesAndMissingWords) {
  for (const char *name : ascendingNames)
    EXPECT_EQ(kw::compareApplicationResourceNameByWords("foo", name, " "),
              ComparisonResult::OrderedAscending)
        << name;
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("foo bar", "foo", " "),
            ComparisonResult::OrderedAscending);
}

TEST(CompareApplicationResourceName, takesTheReceiverAsAnExpression) {
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("a.c", "a.c abc7", " "),
            ComparisonResult::OrderedAscending)
      << "the dot stands for any letter in the test for numbered copies";
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("c++", "c++ 7", " "),
            ComparisonResult::OrderedSame)
      << "the plus signs are syntax there, so that those of the copy are in the way";
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("(a", "(a 7", " "),
            ComparisonResult::OrderedSame)
      << "what is no expression finds no copies";
}

TEST(CompareApplicationResourceName, endsForAReceiverThatBacktracksWithoutEnd) {
  std::string other(200, 'a');
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("(a+)+b", other, " "),
            ComparisonResult::OrderedAscending)
      << "no numbered copy, but the word is missing too";
}

TEST(CompareApplicationResourceName, doesNotSplitAtAnEmptySeparator) {
  EXPECT_EQ(kw::compareApplicationResourceNameByWords("foo bar", "bar foo", ""),
            ComparisonResult::OrderedAscending);
}

TEST(IsSubpathOf, holdsForWholeComponentsAnywhereInThePath) {
  EXPECT_TRUE(kw::isSubpathOf("/a/b/c", "/a/b"));
  EXPECT_TRUE(kw::isSubpathOf("/a/b/c", "/b"));
  EXPECT_TRUE(kw::isSubpathOf("/a/b/c", "b/c"));
  EXPECT_TRUE(kw::isSubpathOf("/a/b/c", "/a/b/c"));
}

TEST(IsSubpathOf, doesNotHoldForPartsOfAComponentAtItsEnd) {
  EXPECT_FALSE(kw::isSubpathOf("/a/bc", "/a/b"));
  EXPECT_FALSE(kw::isSubpathOf("/a", "/a/b"));
  EXPECT_TRUE(kw::isSubpathOf("/a/bc", "c")) << "only the end of a component is looked at";
}

TEST(IsSubpathOf, holdsForAnyAbsolutePathOfTheRoot) {
  EXPECT_TRUE(kw::isSubpathOf("/a/b", "/"));
  EXPECT_TRUE(kw::isSubpathOf("/", "/"));
  EXPECT_FALSE(kw::isSubpathOf("a", "/"));
}

TEST(IsSubpathOf, comparesByteForByteAndNormalisesNothing) {
  EXPECT_FALSE(kw::isSubpathOf("/a/b", "/A"));
  EXPECT_FALSE(kw::isSubpathOf("/a/cafe\u0301", "/a/caf\u00e9"));
  EXPECT_FALSE(kw::isSubpathOf("/a//b", "/a/b"));
  EXPECT_TRUE(kw::isSubpathOf("/a/\xff/b", "/\xff"));
  EXPECT_FALSE(kw::isSubpathOf("/a/b", "/a/")) << "two slashes would have to follow";
  EXPECT_FALSE(kw::isSubpathOf("/a", ""));
}

} // namespace
