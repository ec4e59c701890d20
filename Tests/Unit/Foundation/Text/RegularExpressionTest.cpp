// The dialect, and the bounds on the cost of a search.
#include "Foundation/Text/RegularExpression.h"

#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"

#include <gtest/gtest.h>

#include <new>
#include <thread>

namespace {

using NS::ByteRange;
using NS::RegularExpression;

std::shared_ptr<const RegularExpression>
build(std::string_view pattern, NS::RegularExpressionOptions options = NS::RegularExpressionNone) {
  return RegularExpression::regularExpressionWithPattern(pattern, options);
}

TEST(RegularExpression, givesTheFirstMatchInBytes) {
  EXPECT_EQ(build("b+")->firstMatchInString("é𐐨abba"), (ByteRange{7, 2}));
  EXPECT_EQ(build("b")->firstMatchInString("\U00010000\uffffb"), (ByteRange{7, 1}));
  EXPECT_EQ(build("x")->firstMatchInString("abc"), std::nullopt);
  EXPECT_EQ(build("$")->firstMatchInString("é"), (ByteRange{2, 0}));
}

TEST(RegularExpression, ignoresCaseOnDemand) {
  EXPECT_EQ(build("éA")->firstMatchInString("Éa"), std::nullopt);
  EXPECT_EQ(build("éA", NS::RegularExpressionCaseInsensitive)->firstMatchInString("Éa"),
            (ByteRange{0, 3}));
}

TEST(RegularExpression, matchesNoLineEndByADot) {
  for (const char *end : {"\n", "\r", "\u0085", "\u2028"})
    EXPECT_EQ(build("a.")->firstMatchInString(std::string("a") + end), std::nullopt) << end;
}

TEST(RegularExpression, isNullForBadSyntax) {
  for (const char *pattern : {"(", "a)", "[", "a{2,1}", "*", "\\", "(?<n", "(?<=a*)b"})
    EXPECT_EQ(build(pattern), nullptr) << pattern;
  EXPECT_EQ(build(""), nullptr);
}

TEST(RegularExpression, isNotNullForLackOfMemory) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  std::string pattern;
  for (int part = 0; part < 4000; ++part)
    pattern += "(abc|d+)";
  int thrown = 0;
  for (std::size_t limit = 0; limit < (4u << 20); limit += 64u << 10) {
    kwtest::MemoryLimit scarcity(limit);
    try {
      EXPECT_TRUE(build(pattern)) << limit;
    } catch (const std::bad_alloc &) {
      ++thrown;
    }
  }
  EXPECT_GT(thrown, 0);
}

TEST(RegularExpression, isNullForAnImmensePattern) {
  EXPECT_NE(build(std::string(1 << 16, 'a')), nullptr);
  EXPECT_EQ(build(std::string((1 << 16) + 1, 'a')), nullptr);
}

TEST(RegularExpression, tellsBytesOfInvalidUTF8Apart) {
  EXPECT_EQ(build("a\xff")->firstMatchInString("é a\xff"), (ByteRange{3, 2}));
  EXPECT_EQ(build("a\xff")->firstMatchInString("a\xfe"), std::nullopt);
  EXPECT_EQ(build("^a.b$")->firstMatchInString("a\xc3"
                                               "b"),
            (ByteRange{0, 3}));
}

TEST(RegularExpression, endsACatastrophicSearchAsNoMatch) {
  std::string text(5000, 'a');
  for (const char *pattern : {"(a+)+$b", "(a|a)*b", "(a*)*b", "(.*.*)*b", "(a?){64}a{64}b"})
    EXPECT_EQ(build(pattern)->firstMatchInString(text + "c"), std::nullopt) << pattern;
  EXPECT_EQ(build("(a+)+$")->firstMatchInString(std::string(40, 'a') + "b"), std::nullopt);
}

TEST(RegularExpression, countsAnExhaustedStackAsNoMatch) {
  EXPECT_EQ(build("(?:(a)|b)*c")->firstMatchInString(std::string((1 << 20) - 1, 'a') + "c"),
            std::nullopt);
}

TEST(RegularExpression, doesNotSearchAnImmenseText) {
  std::string text((1 << 20) - 1, 'a');
  EXPECT_EQ(build("b")->firstMatchInString(text + "b"), (ByteRange{text.size(), 1}));
  EXPECT_EQ(build("b")->firstMatchInString(text + "ab"), std::nullopt);
}

TEST(RegularExpression, servesManyThreadsAtOnce) {
  auto expression = build("(a|b)+c");
  std::vector<std::thread> threads;
  std::vector<int> matches(4, 0);
  for (std::size_t index = 0; index < matches.size(); ++index)
    threads.emplace_back([&, index] {
      for (int round = 0; round < 200; ++round)
        matches[index] += expression->firstMatchInString("xababc").has_value();
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(matches, std::vector<int>(4, 200));
}

} // namespace
