// Escapes of every byte, and incomplete escapes.
#include "Foundation/Text/PercentEscapes.h"

#include <gtest/gtest.h>

#include <string>

#include <fmt/format.h>

namespace {

using NS::stringByAddingPercentEscapes;
using NS::stringByReplacingPercentEscapes;

TEST(PercentEscapes, standForTheBytesThatNoURLMayHold) {
  const std::string legal = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                            "-_.~!*'();:@&=+$,/?";
  for (unsigned byte = 0; byte < 256; ++byte) {
    std::string text(1, static_cast<char>(byte));
    bool isLegal = legal.find(text) != std::string::npos;
    EXPECT_EQ(stringByAddingPercentEscapes(text), isLegal ? text : fmt::format("%{:02X}", byte));
  }
}

TEST(PercentEscapes, standForTheListedBytesToo) {
  EXPECT_EQ(stringByAddingPercentEscapes("a/b&c é", "/&"), "a%2Fb%26c%20%C3%A9");
}

TEST(PercentEscapes, giveTheirBytesBack) {
  for (unsigned byte = 0; byte < 128; ++byte) {
    std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(stringByReplacingPercentEscapes(fmt::format("%{:02X}", byte)), text);
    EXPECT_EQ(stringByReplacingPercentEscapes(fmt::format("%{:02x}", byte)), text);
  }
  EXPECT_EQ(stringByReplacingPercentEscapes("a%20b%C3%a9%25c"), "a bé%c");
  EXPECT_EQ(stringByReplacingPercentEscapes(""), "");
  EXPECT_EQ(stringByReplacingPercentEscapes(std::string_view("%41%42", 3)), "A");
}

TEST(PercentEscapes, needTwoHexadecimalDigits) {
  for (const char *text : {"%", "a%", "%4", "%4g", "%g4", "%%41", "%/0", "%:0", "%@0", "%G0", "%`0",
                           "%0/", "%0:", "%0@", "%0G", "%0`", "%0g", "%41%4", "%g0%9F%98%80"})
    EXPECT_EQ(stringByReplacingPercentEscapes(text), std::nullopt) << text;
  EXPECT_EQ(stringByReplacingPercentEscapes(std::string_view("a%41", 3)), std::nullopt);
}

TEST(PercentEscapes, ofARunAreWellFormedTogether) {
  EXPECT_EQ(stringByReplacingPercentEscapes("%E2%82%AC"), "€");
  for (const char *text : {"%C3", "%C3x%A9", "%A9%C3", "%ff", "%ED%A0%80"})
    EXPECT_EQ(stringByReplacingPercentEscapes(text), std::nullopt) << text;
}

} // namespace
