// Escaping for URLs.
#include "Additions/NSString+URLAdditions.h"

#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(EncodingURLEscapes, leavesLettersDigitsAndFourMarks) {
  EXPECT_EQ(kw::stringByEncodingURLEscapes("azAZ09-_.~"), "azAZ09-_.~");
  EXPECT_EQ(kw::stringByEncodingURLEscapes("!*'();:@&=+$,/?%#[]"),
            "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D");
  EXPECT_EQ(kw::stringByEncodingURLEscapes(" \"<>\\^`{|}\n\x7f"),
            "%20%22%3C%3E%5C%5E%60%7B%7C%7D%0A%7F");
  EXPECT_EQ(kw::stringByEncodingURLEscapes("é𐐨"), "%C3%A9%F0%90%90%A8");
  EXPECT_EQ(kw::stringByEncodingURLEscapes(""), "");
}

TEST(DecodingURLEscapes, readsEscapesAndPlusSigns) {
  EXPECT_EQ(kw::stringByDecodingURLEscapes("a+b%20c%2B"), "a b c+");
  EXPECT_EQ(kw::stringByDecodingURLEscapes("%c3%A9"), "é");
  EXPECT_EQ(kw::stringByDecodingURLEscapes("+\u0301"), " \u0301") << "letter by letter";
  EXPECT_EQ(kw::stringByDecodingURLEscapes(""), "");
}

TEST(DecodingURLEscapes, givesNothingForMalformedEscapes) {
  for (const char *text : {"%", "100%", "%4", "%zz", "%4z", "a%%20", "%ff", "%c3", "%c3x%a9"})
    EXPECT_EQ(kw::stringByDecodingURLEscapes(text), std::nullopt) << text;
}

TEST(DecodingURLEscapes, decodesTheEncodedText) {
  for (std::string text : {"", "a b+c", "100%", "é\n\x01", "a&b=c?d#e"})
    EXPECT_EQ(kw::stringByDecodingURLEscapes(kw::stringByEncodingURLEscapes(text)), text);
}

TEST(StringEncodedAsURL, makesTheLegacyEscapesAndEscapesAmpersands) {
  EXPECT_EQ(kw::kws_stringEncodedAsURL("http://a.b/c d?e=f&g=h+i"), "http://a.b/c%20d?e=f%26g=h+i");
  EXPECT_EQ(kw::kws_stringEncodedAsURL("\"#%<>[\\]^`{|}"),
            "%22%23%25%3C%3E%5B%5C%5D%5E%60%7B%7C%7D");
  EXPECT_EQ(kw::kws_stringEncodedAsURL("é&"), "%C3%A9%26");
}

TEST(ReplacingOccurrences, replacesEachOccurrenceOnce) {
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("aXbXc", "X", "XX"), "aXXbXXc");
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("aaa", "aa", "b"), "ba");
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("abc", "", "x"), "abc");
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("abc", "b", ""), "ac");
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("", "b", "x"), "");
}

TEST(ReplacingOccurrences, knowsEquivalentSpellings) {
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("cafe\u0301s", "é", "e"), "cafes");
  EXPECT_EQ(kw::stringByReplacingOccurrencesOfString("cafe\u0301s", "e", "x"), "cafe\u0301s");
}

TEST(URLParams, joinsTheEscapedPairsInTheDictionarysOrder) {
  EXPECT_EQ(kw::URLParamsStringWithDictionary(Pairs{{"b", "1"}, {"a c", "d e"}}),
            "b=1&a%20c=d%20e");
  EXPECT_EQ(kw::URLParamsStringWithDictionary(std::map<std::string, int>{{"x", 1}, {"y", -2}}),
            "x=1&y=-2");
}

TEST(URLParams, keepsAmpersandsAndEqualsSigns) {
  EXPECT_EQ(kw::URLParamsStringWithDictionary(Pairs{{"a=b", "c&d"}}), "a=b=c&d");
}

TEST(URLParams, ofAnEmptyDictionaryAreEmpty) {
  EXPECT_EQ(kw::URLParamsStringWithDictionary(Pairs{}), "");
}

} // namespace
