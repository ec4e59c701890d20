// Sizes as text: the units, the rounding, the texts of the main bundle.
#include "Tools/RVFileSizer.h"

#include "Support/FakeBundle.h"
#include "Support/LocaleVariables.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdlib.h>
#include <thread>

namespace {

using kw::RVFileSizer;
using kwtest::FakeBundle;
__extension__ using Wide = unsigned __int128;

const RVFileSizer &sizer() {
  return RVFileSizer::shared();
}

// The decimal separator is the locale's; most of these tests expect a point.
class PointLocale final : public testing::Environment {
public:
  void SetUp() override { ::setenv("LC_ALL", "C", 1); }
};
[[maybe_unused]] const auto *const environment = testing::AddGlobalTestEnvironment(new PointLocale);

struct Row {
  std::uint64_t size;
  const char *decimal;
  const char *binary;
};

constexpr Row table[] = {
    {1, "0 KB", "0 KB"},
    {499, "0 KB", "0 KB"},
    {500, "0 KB", "0 KB"},
    {501, "1 KB", "0 KB"},
    {512, "1 KB", "0 KB"},
    {513, "1 KB", "1 KB"},
    {999, "1 KB", "1 KB"},
    {1000, "1 KB", "1 KB"},
    {1023, "1 KB", "1 KB"},
    {1024, "1 KB", "1 KB"},
    {1499, "1 KB", "1 KB"},
    {1500, "2 KB", "1 KB"},
    {1501, "2 KB", "1 KB"},
    {1536, "2 KB", "2 KB"},
    {2048, "2 KB", "2 KB"},
    {2500, "2 KB", "2 KB"},
    {2560, "3 KB", "2 KB"},
    {2561, "3 KB", "3 KB"},
    {3500, "4 KB", "3 KB"},
    {3584, "4 KB", "4 KB"},
    {4096, "4 KB", "4 KB"},
    {4500, "4 KB", "4 KB"},
    {5500, "6 KB", "5 KB"},
    {10000, "10 KB", "10 KB"},
    {65536, "66 KB", "64 KB"},
    {100000, "100 KB", "98 KB"},
    {123456, "123 KB", "121 KB"},
    {500500, "500 KB", "489 KB"},
    {501500, "502 KB", "490 KB"},
    {999499, "999 KB", "976 KB"},
    {999500, "1000 KB", "976 KB"},
    {999999, "1000 KB", "977 KB"},
    {1000000, "1 MB", "977 KB"},
    {1000001, "1 MB", "977 KB"},
    {1048575, "1 MB", "1024 KB"},
    {1048576, "1 MB", "1 MB"},
    {1050000, "1 MB", "1 MB"},
    {1050001, "1.1 MB", "1 MB"},
    {1150000, "1.2 MB", "1.1 MB"},
    {1250000, "1.2 MB", "1.2 MB"},
    {1350000, "1.4 MB", "1.3 MB"},
    {1500000, "1.5 MB", "1.4 MB"},
    {1572864, "1.6 MB", "1.5 MB"},
    {3000000, "3 MB", "2.9 MB"},
    {12500000, "12.5 MB", "11.9 MB"},
    {12550000, "12.6 MB", "12 MB"},
    {12650000, "12.6 MB", "12.1 MB"},
    {99999999, "100 MB", "95.4 MB"},
    {123456789, "123.5 MB", "117.7 MB"},
    {999949999, "999.9 MB", "953.6 MB"},
    {999950000, "1000 MB", "953.6 MB"},
    {999999999, "1000 MB", "953.7 MB"},
    {1000000000, "1 GB", "953.7 MB"},
    {1005000000, "1 GB", "958.4 MB"},
    {1015000000, "1.02 GB", "968 MB"},
    {1073741823, "1.07 GB", "1024 MB"},
    {1073741824, "1.07 GB", "1 GB"},
    {1234567890, "1.23 GB", "1.15 GB"},
    {5368709120, "5.37 GB", "5 GB"},
    {999994999999, "999.99 GB", "931.32 GB"},
    {999995000000, "1000 GB", "931.32 GB"},
    {1000000000000, "1 TB", "931.32 GB"},
    {1000500000000, "1 TB", "931.79 GB"},
    {1001500000000, "1.002 TB", "932.72 GB"},
    {1099511627775, "1.1 TB", "1024 GB"},
    {1099511627776, "1.1 TB", "1 TB"},
    {2199023255552, "2.199 TB", "2 TB"},
    {8796093022208, "8.796 TB", "8 TB"},
    {123456789012345, "123.457 TB", "112.283 TB"},
    {999999999999999, "1000 TB", "909.495 TB"},
    {1000000000000000, "1 PB", "909.495 TB"},
    {1125899906842623, "1.1259 PB", "1024 TB"},
    {1125899906842624, "1.1259 PB", "1 PB"},
    {1234567890123456, "1.2346 PB", "1.0965 PB"},
    {1000000000000000000, "1000 PB", "888.1784 PB"},
    {1152921504606846976, "1152.9215 PB", "1024 PB"},
    {18446744073709551615u, "18446.7441 PB", "16384 PB"},
};

// The table above is written with ordinary blanks.
std::string withNoBreakSpace(std::string text) {
  return text.replace(text.find(' '), 1, "\u00a0");
}

TEST(RVFileSizerDisplay, showsEachSizeInBothBases) {
  FakeBundle bundle;
  for (auto [size, decimal, binary] : table) {
    EXPECT_EQ(sizer().displayItemSizeFromSize(size), withNoBreakSpace(decimal)) << size;
    EXPECT_EQ(sizer().displayItemSizeFromSizeInBase2(size), withNoBreakSpace(binary)) << size;
    EXPECT_EQ(sizer().nonLocalizedDisplayItemSizeFromSize(size), withNoBreakSpace(decimal));
    std::string number(decimal);
    number.resize(number.find(' '));
    EXPECT_EQ(sizer().displayItemSizeNumberFromSize(size), number) << size;
    EXPECT_EQ(sizer().displayItemSizeDimensionFromSize(size),
              std::string(decimal).substr(number.size() + 1));
  }
}

// Exact arithmetic on whole numbers: the size as the double that it becomes,
// divided by the unit and rounded half to even.
std::string exactText(std::uint64_t size, bool base2) {
  constexpr const char *units[] = {"KB", "MB", "GB", "TB", "PB"};
  Wide step = base2 ? 1024 : 1000;
  Wide unit = step;
  std::size_t index = 0;
  while (index < 4 && unit * step <= size) {
    unit *= step;
    ++index;
  }
  Wide scale = 1;
  for (std::size_t digit = 0; digit < index; ++digit)
    scale *= 10;
  Wide value = static_cast<Wide>(static_cast<double>(size)) * scale;
  Wide quotient = value / unit;
  Wide twice = value % unit * 2;
  if (twice > unit || (twice == unit && quotient % 2 == 1))
    ++quotient;
  std::string fraction = std::to_string(static_cast<std::uint64_t>(quotient % scale));
  fraction.insert(0, index - std::min(index, fraction.size()), '0');
  fraction.resize(index);
  fraction.erase(fraction.find_last_not_of('0') + 1);
  std::string text = std::to_string(static_cast<std::uint64_t>(quotient / scale));
  if (!fraction.empty())
    text += "." + fraction;
  return text + "\u00a0" + units[index];
}

TEST(RVFileSizerDisplay, roundsExactlyAroundEveryPower) {
  std::vector<std::uint64_t> sizes;
  for (std::uint64_t power = 1;; power *= 10) {
    sizes.insert(sizes.end(), {power - 1, power, power + 1});
    if (power > ~std::uint64_t{0} / 10)
      break;
  }
  for (int bit = 0; bit < 64; ++bit) {
    std::uint64_t power = std::uint64_t{1} << bit;
    sizes.insert(sizes.end(), {power - 1, power, power + 1});
  }
  sizes.push_back(~std::uint64_t{0});
  for (std::uint64_t size : sizes) {
    if (size == 0)
      continue;
    EXPECT_EQ(sizer().displayItemSizeFromSize(size, false, false), exactText(size, false)) << size;
    EXPECT_EQ(sizer().displayItemSizeFromSize(size, true, false), exactText(size, true)) << size;
  }
}

TEST(RVFileSizerDisplay, hasATextOfItsOwnForNothing) {
  FakeBundle bundle;
  for (const std::string &text :
       {sizer().displayItemSizeFromSize(0), sizer().nonLocalizedDisplayItemSizeFromSize(0),
        sizer().displayItemSizeFromSizeInBase2(0), sizer().displayItemSizeFromSize(0, true, false),
        sizer().displayItemSizeNumberFromSize(0)})
    EXPECT_EQ(text, "Zero\u00a0KB");
  EXPECT_EQ(bundle.asked, std::vector<std::string>(5, "Zero\u00a0KB"));
  EXPECT_EQ(sizer().displayItemSizeDimensionFromSize(0), "");
  EXPECT_EQ(bundle.asked.size(), 5u);
}

TEST(RVFileSizerDisplay, translatesUnitsWhenAskedAndTheTextForNothingAlways) {
  FakeBundle bundle;
  bundle.texts = {{"MB", "Mo"}, {"Zero\u00a0KB", "rien"}};
  EXPECT_EQ(sizer().displayItemSizeFromSize(3000000), "3\u00a0Mo");
  EXPECT_EQ(sizer().displayItemSizeFromSizeInBase2(3145728), "3\u00a0Mo");
  EXPECT_EQ(sizer().displayItemSizeDimensionFromSize(3000000), "Mo");
  EXPECT_EQ(sizer().displayItemSizeNumberFromSize(3000000), "3");
  EXPECT_EQ(sizer().nonLocalizedDisplayItemSizeFromSize(3000000), "3\u00a0MB");
  EXPECT_EQ(sizer().nonLocalizedDisplayItemSizeFromSize(0), "rien");
  EXPECT_EQ(sizer().displayItemSizeNumberFromSize(0), "rien");
}

// A formatter that has no text for anything.
class Speechless final : public NS::NumberFormatter {
public:
  void setRoundingMode(NS::NumberFormatterRoundingMode) override {}
  void setMinimumIntegerDigits(int) override {}
  void setMaximumFractionDigits(int) override {}
  std::optional<std::string> stringFromNumber(const NS::Number &) const override {
    return std::nullopt;
  }
};

TEST(RVFileSizerDisplay, fallsBackToTheTextsForNothing) {
  struct SpeechlessSizer final : RVFileSizer {
    std::unique_ptr<NS::NumberFormatter> defaultSizeFormatter() const override {
      return std::make_unique<Speechless>();
    }
    const NS::NumberFormatter &cachedSizeFormatter(std::size_t) const override { return none; }
    Speechless none;
  };
  FakeBundle bundle;
  EXPECT_EQ(SpeechlessSizer().displayItemSizeFromSize(5000), "Zero\u00a0KB");
  EXPECT_EQ(SpeechlessSizer().displayItemSizeNumberFromSize(5000), "Zero");
}

TEST(RVFileSizerDisplay, measuresAndShowsAnItem) {
  kwtest::ScratchFolder scratch;
  std::string path = scratch.file("file", std::string(4096, 'x'));
  ::sync();
  EXPECT_EQ(sizer().displayItemSizeAtPath(path), "4\u00a0KB");
  EXPECT_EQ(sizer().displayItemSizeAtPath(scratch.path("missing")), "Zero\u00a0KB");
}

TEST(RVFileSizerDisplay, makesAFormatterWithTwoDecimals) {
  auto formatter = sizer().defaultSizeFormatter();
  for (auto [value, text] : {std::pair{0.125, "0.12"},
                             {0.375, "0.38"},
                             {1234567.0, "1234567"},
                             {0.0, "0"},
                             {0.004, "0"},
                             {3.0, "3"},
                             {1e15, "1000000000000000"}})
    EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(value)), text);
}

// Locales that would group the digits of these numbers, with other separators
// and other digits. No locale must be installed for them.
TEST(RVFileSizerDisplay, makesAFormatterOfTheLocaleThatGroupsNoDigits) {
  struct Case {
    const char *locale, *text, *large;
  };
  for (auto [locale, text, large] :
       {Case{"de_DE.UTF-8", "0,12", "1234567,9"}, Case{"en_US.UTF-8", "0.12", "1234567.9"},
        Case{"fa_IR.UTF-8", "\u06f0\u066b\u06f1\u06f2",
             "\u06f1\u06f2\u06f3\u06f4\u06f5\u06f6\u06f7\u066b\u06f9"}}) {
    kwtest::LocaleVariables variables(kwtest::LocaleVariables::Wanted{{"LC_ALL", locale}});
    auto formatter = sizer().defaultSizeFormatter();
    EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(0.125)), text);
    EXPECT_EQ(formatter->stringFromNumber(*NS::Number::numberWithDouble(1234567.9)), large);
    EXPECT_EQ(sizer().displayItemSizeNumberFromSize(999999),
              *formatter->stringFromNumber(*NS::Number::numberWithDouble(1000)));
  }
}

// In programs run anew: the formatters that are shared are made once.
TEST(RVFileSizerDisplay, showsSizesAsTheLocaleOfNumbersHasThem) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct Case {
    const char *locale, *kilobytes, *petabytes;
  };
  for (auto [locale, kilobytes, petabytes] :
       {Case{"de_DE.UTF-8", "1000 KB", "1152,9215 PB"},
        Case{"en_US.UTF-8", "1000 KB", "1152.9215 PB"},
        Case{"mr_IN.UTF-8", "\u0967\u0966\u0966\u0966 KB",
             "\u0967\u0967\u096b\u0968.\u096f\u0968\u0967\u096b PB"}})
    EXPECT_EXIT(
        {
          kwtest::LocaleVariables variables(
              kwtest::LocaleVariables::Wanted{{"LC_NUMERIC", locale}});
          std::string shown = sizer().nonLocalizedDisplayItemSizeFromSize(999999) + " " +
                              sizer().nonLocalizedDisplayItemSizeFromSize(1ull << 60);
          std::fputs(shown.c_str(), stderr);
          std::exit(shown == withNoBreakSpace(kilobytes) + " " + withNoBreakSpace(petabytes) ? 0
                                                                                             : 1);
        },
        testing::ExitedWithCode(0), "")
        << locale;
}

TEST(RVFileSizerDisplay, scalesByTheListAndCountsAnyOtherInItsFirstUnit) {
  std::size_t index = 9;
  EXPECT_EQ(kw::scaledSize(1500000, kw::decimalSizeThresholds, &index), 1.5);
  EXPECT_EQ(index, 1u);
  EXPECT_EQ(kw::scaledSize(1572864, kw::binarySizeThresholds, nullptr), 1.5);
  EXPECT_EQ(kw::scaledSize(1500000, {10, 100, 1000, 10000, 100000}, &index), 150000.0);
  EXPECT_EQ(index, 0u);
}

TEST(RVFileSizerDisplay, sharesItsFormattersAmongManyThreads) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back([&wrong] {
      for (int round = 0; round < 100; ++round)
        for (auto [size, decimal, binary] : table)
          wrong += sizer().displayItemSizeFromSize(size, false, false) != withNoBreakSpace(decimal);
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

} // namespace
