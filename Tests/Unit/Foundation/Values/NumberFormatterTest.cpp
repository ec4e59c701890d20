// Numbers in words of several locales. The library brings their data, so that
// none of them must be installed.
#include "Foundation/Values/NumberFormatter.h"

#include "Support/LocaleVariables.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

namespace {

using kwtest::LocaleVariables;

std::string formatted(double number, const std::map<std::string, std::string> &environment) {
  LocaleVariables variables(environment);
  auto formatter = NS::NumberFormatter::create();
  formatter->setMaximumFractionDigits(2);
  return formatter->stringFromNumber(*NS::Number::numberWithDouble(number)).value_or("none");
}

TEST(NumberFormatter, hasTheSeparatorOfTheLocaleOfNumbers) {
  EXPECT_EQ(formatted(1.5, {{"LC_NUMERIC", "de_DE.UTF-8"}, {"LANG", "en_US.UTF-8"}}), "1,5");
  EXPECT_EQ(formatted(1.5, {{"LC_MESSAGES", "de_DE.UTF-8"}, {"LANG", "en_US.UTF-8"}}), "1.5");
  EXPECT_EQ(formatted(1.5, {{"LANG", "fr_FR"}}), "1,5");
  EXPECT_EQ(formatted(1.5, {{"LC_ALL", "en_GB.UTF-8"}, {"LC_NUMERIC", "de_DE.UTF-8"}}), "1.5");
  EXPECT_EQ(formatted(1.5, {{"LC_ALL", "de_DE@euro"}, {"LC_NUMERIC", "en_GB"}}), "1,5");
  // An empty variable is as good as none.
  EXPECT_EQ(formatted(1.5, {{"LC_ALL", ""}, {"LC_NUMERIC", "de_DE"}}), "1,5");
}

TEST(NumberFormatter, hasAPointWithoutALocale) {
  for (const char *name : {"C", "POSIX", "C.UTF-8", "C.utf8", "no such locale"})
    EXPECT_EQ(formatted(1.5, {{"LC_ALL", name}, {"LC_MESSAGES", "de_DE"}}), "1.5") << name;
  EXPECT_EQ(formatted(1.5, {}), "1.5");
}

// Other locales write the sign for infinity.
TEST(NumberFormatter, writesOnlyLettersAndDigitsWithoutALocale) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const char *name : {"", "C", "POSIX", "C.UTF-8"})
    EXPECT_EQ(formatted(infinity, {{"LC_ALL", name}}), "INF") << name;
  EXPECT_EQ(formatted(infinity, {{"LC_ALL", "en_US"}}), "∞");
}

TEST(NumberFormatter, passesOverANameThatIsTooLongForALocale) {
  for (std::size_t length = 150; length < 165; ++length)
    EXPECT_EQ(formatted(1.5, {{"LC_ALL", std::string(length, 'x')}}), "1.5") << length;
}

TEST(NumberFormatter, hasTheDigitsOfTheLocale) {
  EXPECT_EQ(formatted(1.5, {{"LC_ALL", "fa_IR.UTF-8"}}), "\u06f1\u066b\u06f5");
  EXPECT_EQ(formatted(12, {{"LC_ALL", "mr_IN"}}), "\u0967\u0968");
}

// Each of these groups by itself.
TEST(NumberFormatter, groupsNoDigits) {
  EXPECT_EQ(formatted(1234567.25, {{"LC_ALL", "de_DE"}}), "1234567,25");
  EXPECT_EQ(formatted(1234567.25, {{"LC_ALL", "en_US"}}), "1234567.25");
  EXPECT_EQ(formatted(1234567.25, {{"LC_ALL", "en_IN"}}), "1234567.25");
  EXPECT_EQ(formatted(1234567.25, {{"LC_ALL", "fr_CH"}}), "1234567,25");
}

TEST(NumberFormatter, writesLongNumbersInFull) {
  EXPECT_EQ(formatted(1e100, {}), "1" + std::string(100, '0'));
}

TEST(NumberFormatter, writesWholeNumbersUnlessToldOtherwise) {
  LocaleVariables variables(LocaleVariables::Wanted{});
  auto formatter = NS::NumberFormatter::create();
  struct Row {
    double number;
    const char *text;
  };
  for (auto [number, text] : {Row{0.4, "0"}, Row{1.5, "2"}, Row{2.5, "2"}, Row{-7, "-7"}})
    EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(number)), text);
}

TEST(NumberFormatter, roundsAndFillsWithDigitsOfTheLocale) {
  LocaleVariables variables(LocaleVariables::Wanted{{"LC_ALL", "de_DE"}});
  auto formatter = NS::NumberFormatter::create();
  formatter->setMaximumFractionDigits(1);
  formatter->setMinimumIntegerDigits(2);
  EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(0.25)), "00,2");
  formatter->setRoundingMode(NS::NumberFormatterRoundingMode::HalfUp);
  EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(0.25)), "00,3");
}

} // namespace
