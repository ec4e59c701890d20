// JSON on one line: escapes, and names of invalid UTF-8.
#include "CommandLine/JSON.h"

#include <gtest/gtest.h>

namespace {

using Strings = std::vector<std::string>;

TEST(JSON, escapesReservedCharacters) {
  EXPECT_EQ(kw::jsonString("a\"b\\c\n\t\r\x01\x7f"), "\"a\\\"b\\\\c\\n\\t\\r\\u0001\\u007f\"");
  EXPECT_EQ(kw::jsonString("Grüße \xE2\x98\x83 \xF0\x9F\x98\x80"),
            "\"Grüße \xE2\x98\x83 \xF0\x9F\x98\x80\"");
}

TEST(JSON, escapesCharactersThatActOnATerminal) {
  EXPECT_EQ(kw::jsonString("\u009b\u202e\u2028"), "\"\\u009b\\u202e\\u2028\"");
}

TEST(JSON, hasTheBytesOfNamesOfInvalidUTF8) {
  EXPECT_EQ(kw::JSONObject().addName("path", "/a").addNames("remove", {"/a"}).text(),
            "{\"path\":\"/a\",\"remove\":[\"/a\"]}");
  EXPECT_EQ(
      kw::JSONObject().addName("path", "/\xff").addNames("kept", {"/a", "/\xff"}).text(),
      "{\"path\":\"/\xEF\xBF\xBD\",\"pathBase64\":\"L/8=\",\"kept\":[\"/a\",\"/\xEF\xBF\xBD\"],"
      "\"keptBase64\":[\"L2E=\",\"L/8=\"]}");
}

TEST(JSON, replacesInvalidUTF8) {
  for (const char *bytes : {"\xff", "\xc0", "\xc1", "\x80", "\xf5"})
    EXPECT_EQ(kw::jsonString(bytes), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(kw::jsonString("\xE2\x98"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
  EXPECT_EQ(kw::jsonString("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

TEST(JSON, writesEveryKindOfValue) {
  kw::JSONObject object;
  object.add("s", "text")
      .add("b", true)
      .add("i", std::int64_t{-1})
      .add("u", ~std::uint64_t{0})
      .add("d", 0.5)
      .add("a", Strings{"x", "y"})
      .add("o", kw::JSONObject().add("n", false));
  EXPECT_EQ(object.text(), "{\"s\":\"text\",\"b\":true,\"i\":-1,\"u\":18446744073709551615,"
                           "\"d\":0.5,\"a\":[\"x\",\"y\"],\"o\":{\"n\":false}}");
}

} // namespace
