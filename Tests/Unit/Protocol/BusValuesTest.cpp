// What values look like on the bus.
#include "Protocol/Linux/BusValues.h"
#include "Protocol/Linux/BusText.h"

#include <gtest/gtest.h>

namespace {

using namespace NS;

constexpr const char *replacement = "\xEF\xBF\xBD";

TEST(BusSignature, isThatOfTheContract) {
  EXPECT_EQ(busSignature({}), "");
  EXPECT_EQ(busSignature({{"flag", XPCKind::Flag}, {"error", XPCKind::Error}}), "b(sxa{sv})");
  EXPECT_EQ(busSignature({{"", XPCKind::Flag}, {"", XPCKind::Int32}, {"", XPCKind::String}}),
            "bis");
  EXPECT_EQ(busSignature({{"", XPCKind::Int64}, {"", XPCKind::StringArray}}), "xas");
}

TEST(BusText, leavesWellFormedTextAlone) {
  for (const char *text : {"", "plain", "Grüße", "世界", "\xF0\x9F\x98\x80", "a\nb\x01\x7f",
                           "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBD"})
    EXPECT_EQ(busText(text), text);
}

TEST(BusText, replacesEachByteOfInvalidUTF8) {
  EXPECT_EQ(busText("a\xFF"), std::string("a") + replacement);
  EXPECT_EQ(busText("\x80z"), std::string(replacement) + "z");
  EXPECT_EQ(busText("\xC3"), replacement); // cut short
  EXPECT_EQ(busText("\xE4\xB8"), std::string(replacement) + replacement);
  EXPECT_EQ(busText("\xC3("), std::string(replacement) + "(");
  EXPECT_EQ(busText(std::string_view("a\0b", 3)), std::string("a") + replacement + "b");
}

TEST(BusText, replacesOverlongFormsSurrogatesAndTooLargeCodePoints) {
  for (const char *text : {"\xC0\x80", "\xC1\xBF", "\xF5\x80", "\xF8\x88"})
    EXPECT_EQ(busText(text), std::string(replacement) + replacement);
  for (const char *text : {"\xE0\x80\x80", "\xED\xA0\x80"})
    EXPECT_EQ(busText(text), std::string(replacement) + replacement + replacement);
  EXPECT_EQ(busText("\xF4\x90\x80\x80").size(), 12u);
}

TEST(BusText, replacesCharactersThatReceiversRefuse) {
  EXPECT_NE(busText("\xEF\xBF\xBF"), "\xEF\xBF\xBF"); // U+FFFF
  EXPECT_NE(busText("\xEF\xB7\x90"), "\xEF\xB7\x90"); // U+FDD0
}

TEST(MemoryOf, countsEveryTextAndEachStringOfAnArray) {
  EXPECT_EQ(memoryOf({}), 0u);
  EXPECT_EQ(memoryOf({XPCValue(), true, std::int64_t{5}, std::string("four")}), 4u);
  EXPECT_GE(memoryOf({std::vector<std::string>(1000)}), 1000 * sizeof(std::string));
}

TEST(ValuesWithoutUserInfo, keepDomainAndCodeOfAnError) {
  XPCValues values =
      valuesWithoutUserInfo({true, Error("domain", 7, {{"path", std::string("/a")}})});
  EXPECT_EQ(std::get<bool>(values.at(0)), true);
  EXPECT_EQ(std::get<Error>(values.at(1)).domain(), "domain");
  EXPECT_EQ(std::get<Error>(values.at(1)).code(), 7);
  EXPECT_TRUE(std::get<Error>(values.at(1)).userInfo().empty());
}

} // namespace
