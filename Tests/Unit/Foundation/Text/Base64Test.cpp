// Base64 both ways, and texts that are not Base64.
#include "Foundation/Text/Internal/Base64.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using NS::base64FromBytes;
using NS::bytesFromBase64;

struct Pair {
  std::string_view bytes;
  std::string_view text;
};
// The examples of the standard, RFC 4648.
constexpr Pair pairs[] = {{"", ""},
                          {"f", "Zg=="},
                          {"fo", "Zm8="},
                          {"foo", "Zm9v"},
                          {"foob", "Zm9vYg=="},
                          {"fooba", "Zm9vYmE="},
                          {"foobar", "Zm9vYmFy"},
                          {"\xfb\xff\xfe", "+//+"}};

TEST(Base64, codesTheStandardsExamples) {
  for (const Pair &pair : pairs) {
    EXPECT_EQ(base64FromBytes(pair.bytes), pair.text);
    EXPECT_EQ(bytesFromBase64(pair.text), pair.bytes);
  }
}

TEST(Base64, codesOnlyTheBytesGiven) {
  EXPECT_EQ(base64FromBytes(std::string_view("foobar", 4)), "Zm9vYg==");
  EXPECT_EQ(base64FromBytes(std::string_view("foobar", 5)), "Zm9vYmE=");
}

TEST(Base64, bringsAnyBytesBack) {
  std::mt19937 random(7);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0');
    for (char &byte : bytes)
      byte = static_cast<char>(random());
    std::string text = base64FromBytes(bytes);
    EXPECT_EQ(text.size(), (length + 2) / 3 * 4);
    EXPECT_EQ(bytesFromBase64(text), bytes);
  }
}

TEST(Base64, refusesEverythingElse) {
  for (std::string_view text : {"Z", "Zg", "Zg=", "Zg===", "=", "====", "Z===", "Zm9v=", "Zg==Zg==",
                                "Zg=a", "Zm9v\n", " Zm9v", "Zm9-", "Zm9_", "Zm\xc3\xa9", "Zm8=="})
    EXPECT_EQ(bytesFromBase64(text), std::nullopt) << text;
  EXPECT_EQ(bytesFromBase64(std::string_view("Zm9\0", 4)), std::nullopt);
}

} // namespace
