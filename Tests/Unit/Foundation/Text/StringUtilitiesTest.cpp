// Searching, splitting, case and units.
#include "Foundation/Text/StringUtilities.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Text/CharacterSet.h"
#include "Foundation/Text/Unicode.h"

#include <gtest/gtest.h>

namespace {

using NS::ByteRange;
using NS::StringSearch;

TEST(RangeOfString, findsTheFirstOccurrence) {
  EXPECT_EQ(NS::rangeOfString("abcabc", "bc"), (ByteRange{1, 2}));
  EXPECT_EQ(NS::rangeOfString("abc", "abc"), (ByteRange{0, 3}));
  EXPECT_EQ(NS::rangeOfString("abc", "BC"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("abc", "abcd"), std::nullopt);
}

TEST(RangeOfString, findsAnEmptyTargetNowhere) {
  EXPECT_EQ(NS::rangeOfString("abc", ""), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("", ""), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("é", ""), std::nullopt);
}

TEST(RangeOfString, treatsEquivalentSpellingsAsEqual) {
  EXPECT_EQ(NS::rangeOfString("a\u00e9b", "e\u0301"), (ByteRange{1, 2}));
  EXPECT_EQ(NS::rangeOfString("ae\u0301b", "\u00e9"), (ByteRange{1, 3}));
  EXPECT_EQ(NS::rangeOfString("x\u212b", "A\u030a"), (ByteRange{1, 3})) << "the Angstrom sign";
  EXPECT_EQ(NS::rangeOfString("10\u212a", "K"), (ByteRange{2, 3})) << "the Kelvin sign";
  EXPECT_EQ(NS::rangeOfString("가", "\u1100\u1161"), (ByteRange{0, 3})) << "Hangul";
  EXPECT_EQ(NS::rangeOfString("q\u0323\u0307", "q\u0307\u0323"), (ByteRange{0, 5}))
      << "marks in another order";
}

TEST(RangeOfString, doesNotTakeALetterFromItsMarks) {
  EXPECT_EQ(NS::rangeOfString("ae\u0301b", "e"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("ae\u0301be", "e"), (ByteRange{5, 1}));
  EXPECT_EQ(NS::rangeOfString("a\u00e9b", "\u0301"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("ae\u0301b", "\u0301"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("ae\u0300b", "e"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("e\u0488", "e"), std::nullopt) << "a mark that encloses";
  EXPECT_EQ(NS::rangeOfString("가", "\u1100"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("\u1100\u1161", "\u1100"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString(std::string(300, 'x') + "e\u0301", "e"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("a\u00e9b", "b"), (ByteRange{3, 1}));
}

TEST(RangeOfString, searchedLiterallyComparesBytes) {
  EXPECT_EQ(NS::rangeOfString("ae\u0301b", "e", StringSearch::Literal), (ByteRange{1, 1}));
  EXPECT_EQ(NS::rangeOfString("a\u00e9b", "e\u0301", StringSearch::Literal), std::nullopt);
}

TEST(RangeOfString, findsBytesOfInvalidUTF8) {
  EXPECT_EQ(NS::rangeOfString("a\xff\xfe", "\xfe"), (ByteRange{2, 1}));
  EXPECT_EQ(NS::rangeOfString("a\xff", "\xfe"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("\x80", "\uff80"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("é", "\xa9"), std::nullopt) << "half of a character";
  EXPECT_EQ(NS::rangeOfString("\xc3", "é"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("b\xc3", "b"), (ByteRange{0, 1}));
}

TEST(RangeOfString, copesWithMoreMarksThanAnyTextHas) {
  std::string marks;
  for (int count = 0; count < 20000; ++count)
    marks += count % 2 ? "\u0323" : "\u0301";
  EXPECT_EQ(NS::rangeOfString("e" + marks, "x"), std::nullopt);
  EXPECT_EQ(NS::rangeOfString("e" + marks + "x", "x"), (ByteRange{1 + marks.size(), 1}));
}

TEST(RangesOfString, areWithinTheText) {
  EXPECT_EQ(NS::rangesOfString(std::string_view("abab", 3), "ab"),
            (std::vector<ByteRange>{{0, 2}}));
}

TEST(RangesOfString, doNotOverlap) {
  EXPECT_EQ(NS::rangesOfString("aaaa", "aa"), (std::vector<ByteRange>{{0, 2}, {2, 2}}));
  EXPECT_EQ(NS::rangesOfString("ééé", "é"), (std::vector<ByteRange>{{0, 2}, {2, 2}, {4, 2}}));
}

TEST(ComponentsSeparatedByString, keepEmptyPieces) {
  using List = std::vector<std::string>;
  EXPECT_EQ(NS::componentsSeparatedByString(":a::b:", ":"), (List{"", "a", "", "b", ""}));
  EXPECT_EQ(NS::componentsSeparatedByString("", ":"), (List{""}));
  EXPECT_EQ(NS::componentsSeparatedByString("abc", ""), (List{"abc"}));
  EXPECT_EQ(NS::componentsSeparatedByString("é, \xff", ", "), (List{"é", "\xff"}));
}

TEST(ComponentsJoinedByString, areSeparatedOnlyBetween) {
  EXPECT_EQ(NS::componentsJoinedByString({"a", "", "b"}, "--"), "a----b");
  EXPECT_EQ(NS::componentsJoinedByString({}, "-"), "");
}

TEST(RangeOfCharacter, isThatOfTheFirstMember) {
  auto set = NS::CharacterSet::characterSetWithCharactersInString("é€b");
  EXPECT_EQ(NS::rangeOfCharacterFromSet("a€é", set), (ByteRange{1, 3}));
  EXPECT_EQ(NS::rangeOfCharacterFromSet("b", set), (ByteRange{0, 1}));
  EXPECT_EQ(NS::rangeOfCharacterFromSet("xyz", set), std::nullopt);
  EXPECT_EQ(NS::rangeOfCharacterFromSet("\xe9", set), std::nullopt) << "no character";
  EXPECT_EQ(NS::rangeOfCharacterFromSet(std::string_view("ab", 1), set), std::nullopt);
}

TEST(Trimming, takesMembersFromBothEndsAlone) {
  auto set = NS::CharacterSet::whitespaceAndNewlineCharacterSet();
  EXPECT_EQ(NS::stringByTrimmingCharactersInSet(" \n\u3000a b\u2028\t", set), "a b");
  EXPECT_EQ(NS::stringByTrimmingCharactersInSet("é", set), "é");
  EXPECT_EQ(NS::stringByTrimmingCharactersInSet(" \t ", set), "");
  EXPECT_EQ(NS::stringByTrimmingCharactersInSet("", set), "");
  EXPECT_EQ(NS::stringByTrimmingCharactersInSet("\x85 \x85", set), "\x85 \x85") << "no characters";
}

TEST(ReplacingOccurrences, keepsTheTextBetweenThem) {
  auto replaced = NS::stringByReplacingOccurrencesOfString;
  auto search = StringSearch::Equivalent;
  EXPECT_EQ(replaced("abcabc", "b", "XY", search), "aXYcaXYc");
  EXPECT_EQ(replaced("abab", "ab", "", search), "");
  EXPECT_EQ(replaced("xe\u0301y", "é", "e", search), "xey");
  EXPECT_EQ(replaced("abc", "", "x", search), "abc");
  EXPECT_EQ(replaced("", "a", "x", search), "");
}

TEST(LowercaseString, followsTheRulesOfNoLanguage) {
  EXPECT_EQ(NS::lowercaseString("ABC xyz 1[]"), "abc xyz 1[]");
  EXPECT_EQ(NS::lowercaseString("ÉÀI"), "éài");
  EXPECT_EQ(NS::lowercaseString("ΟΔΟΣ"), "οδος") << "the final sigma";
  EXPECT_EQ(NS::lowercaseString("İ"), "i\u0307");
  EXPECT_EQ(NS::lowercaseString("𐐀"), "𐐨");
}

TEST(ContainsLowercase, isTheSearchInTheLowercaseText) {
  for (std::string_view text :
       {"", "a", "MyAPP-2", "myap", "apapp", "É-App", "\xff-APP", "K;", "[{"})
    for (std::string_view target : {"", "a", "app", "app-2", "é", "\u037e", "myapp-23", "[", "{"})
      EXPECT_EQ(NS::containsLowercase(text, target),
                NS::rangeOfString(NS::lowercaseString(text), target).has_value())
          << text << ' ' << target;
  EXPECT_TRUE(NS::containsLowercase("MyAPP", "app"));
  EXPECT_FALSE(NS::containsLowercase("[", "{")) << "a letter's distance apart, and no letter";
}

TEST(LowercaseString, keepsBytesOfInvalidUTF8) {
  EXPECT_EQ(NS::lowercaseString("A\xff"
                                "B\xc3"),
            "a\xff"
            "b\xc3");
  EXPECT_EQ(NS::lowercaseString("\xed\xa0\x80Z"), "\xed\xa0\x80z") << "an encoded surrogate";
}

TEST(CapitalizedWord, hasOnlyItsFirstLetterInTitleCase) {
  EXPECT_EQ(NS::capitalizedWord("o'NEIL street"), "O'neil street");
  EXPECT_EQ(NS::capitalizedWord("éCOLE"), "École");
  EXPECT_EQ(NS::capitalizedWord("ǆ"), "ǅ");
  EXPECT_EQ(NS::capitalizedWord("ßA"), "Ssa");
  EXPECT_EQ(NS::capitalizedWord("a\xff"
                                "B"),
            "A\xff"
            "b");
  EXPECT_EQ(NS::capitalizedWord(""), "");
}

TEST(SubstringWithRange, countsUnits) {
  EXPECT_EQ(NS::substringWithRange("abcde", {1, 3}), "bcd");
  EXPECT_EQ(NS::substringWithRange("abcde", {0, 5}), "abcde");
  EXPECT_EQ(NS::substringWithRange("aéb", {1, 1}), "é");
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {1, 2}), "𐐨");
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {3, 1}), "b");
  EXPECT_EQ(NS::substringWithRange("\uffff\U00010000b", {3, 1}), "b");
  EXPECT_EQ(NS::substringWithRange("\xff"
                                   "b",
                                   {1, 1}),
            "b");
}

TEST(SubstringWithRange, replacesACharacterThatIsCutInHalf) {
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {0, 2}), "a\ufffd");
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {2, 2}), "\ufffdb");
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {1, 1}), "\ufffd");
  EXPECT_EQ(NS::substringWithRange("a𐐨b", {2, 1}), "\ufffd");
}

TEST(SubstringWithRange, raisesOutsideTheString) {
  EXPECT_EQ(NS::substringWithRange("abc", {3, 0}), "");
  EXPECT_THROW(NS::substringWithRange("abc", {3, 1}), NS::Exception);
  EXPECT_THROW(NS::substringWithRange("abc", {4, 0}), NS::Exception);
}

TEST(CharacterSet, hasTheCharactersOfTheStringAndNoOthers) {
  auto set = NS::CharacterSet::characterSetWithCharactersInString(std::string_view("aé€x", 6));
  for (char32_t member : {U'a', U'é', U'€'})
    EXPECT_TRUE(set.characterIsMember(member)) << static_cast<unsigned>(member);
  for (char32_t other : {U'\0', U'x', U'b', char32_t{0xc3}})
    EXPECT_FALSE(set.characterIsMember(other)) << static_cast<unsigned>(other);
}

void expectMembers(const NS::CharacterSet &set, std::u32string_view members,
                   std::u32string_view others) {
  for (char32_t member : members)
    EXPECT_TRUE(set.characterIsMember(member)) << static_cast<unsigned>(member);
  for (char32_t other : others)
    EXPECT_FALSE(set.characterIsMember(other)) << static_cast<unsigned>(other);
}

TEST(CharacterSet, holdsItsCharactersListedInAnyOrder) {
  expectMembers(NS::CharacterSet::characterSetWithCharactersInString("€zéa/"), U"€zéa/", U"b");
}

TEST(CharacterSet, ofWhitespaceHasEverySeparator) {
  expectMembers(NS::CharacterSet::whitespaceAndNewlineCharacterSet(),
                U"\t\n\r \x85\u00a0\u1680\u200b\u2028\u2029\u3000",
                U"\x08\x0e!A\x7f\x80\x84\x86\u200c\ufeff");
}

TEST(CharacterSet, ofDigitsHasThoseOfEveryScript) {
  expectMembers(NS::CharacterSet::decimalDigitCharacterSet(), U"09\u0663\uff11\U0001d7ce",
                U"/:a\u00b2\u2167");
}

TEST(Unicode, countsUnitsAsThePlatformDoes) {
  EXPECT_EQ(NS::utf16Length("aé𐐨"), 4u);
  EXPECT_EQ(NS::utf16Length("e\u0301"), 2u);
  EXPECT_EQ(NS::utf16Length("\xff\xf0\x90"), 3u);
  EXPECT_EQ(NS::utf16Length("\uffff"), 1u);
  EXPECT_EQ(NS::utf16Length("\U00010000"), 2u);
  EXPECT_EQ(NS::utf16Length(""), 0u);
}

TEST(Unicode, refusesFormsThatAreNotTheShortest) {
  for (const char *text : {"\xc0\xaf", "\xe0\x80\xaf", "\xf0\x80\x80\xaf", "\xed\xa0\x80",
                           "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\x80", "\x81\x80\x80\x80",
                           "\xf9\x80\x80\x80", "\xc3", "\xe2\x82", "\xf0\x9f\x98", "\xfe"})
    EXPECT_FALSE(NS::isWellFormedUTF8(text));
  EXPECT_FALSE(NS::isWellFormedUTF8(std::string_view("aé", 2)));
  EXPECT_TRUE(NS::isWellFormedUTF8("\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff"));
}

TEST(Unicode, decodesTheSameBackwardsAsForwards) {
  std::string text = "aé€𐐨\xc3\xff"
                     "b\xe2\x82";
  std::vector<std::size_t> starts;
  for (std::size_t index = 0; index < text.size(); index += NS::decodeCharacter(text, index).length)
    starts.push_back(index);
  for (std::size_t end = text.size(); end > 0;) {
    NS::DecodedCharacter character = NS::decodePreviousCharacter(text, end);
    end -= character.length;
    ASSERT_FALSE(starts.empty());
    EXPECT_EQ(end, starts.back());
    EXPECT_EQ(NS::decodeCharacter(text, end).value, character.value);
    starts.pop_back();
  }
  EXPECT_TRUE(starts.empty());
}

TEST(Unicode, goesToUTF16AndBackWithoutLoss) {
  for (std::string text : {"aé€𐐨", "\xff\x80\xc3", "\xf0\x90\x90", "\xed\xb2\x80", "",
                           "\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff"})
    EXPECT_EQ(NS::bytesFromUTF16(NS::utf16FromBytes(text)), text);
  for (char16_t lone : std::u16string_view(u"\xd800\xd801\xdbff\xdc00\xdc7f\xdd00\xdfff"))
    EXPECT_EQ(NS::bytesFromUTF16(std::u16string(1, lone)), "\ufffd") << static_cast<int>(lone);
  EXPECT_EQ(NS::bytesFromUTF16(u"\xd800\xd800\xdc00"), "\ufffd\U00010000");
  EXPECT_EQ(NS::bytesFromUTF16(u"\xdc00\xdc00"), "\ufffd\ufffd");
  EXPECT_EQ(NS::bytesFromUTF16(std::u16string_view(u"\xd800\xdc00", 1)), "\ufffd")
      << "the second half is not in the text";
}

TEST(Unicode, tellsTextInASCIIFromOther) {
  EXPECT_TRUE(NS::isASCII(""));
  EXPECT_TRUE(NS::isASCII("a\x7f"));
  EXPECT_FALSE(NS::isASCII("\x80"));
  EXPECT_FALSE(NS::isASCII("aé"));
}

} // namespace
