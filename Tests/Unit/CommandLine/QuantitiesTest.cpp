// Sizes, ages and times as people write and read them.
#include "CommandLine/Quantities.h"

#include "CommandLine/LargestItems.h"
#include "Support/FakeBundle.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using kw::Units;

TEST(Sizes, areReadInBothSteps) {
  struct Row {
    const char *text;
    std::uint64_t bytes;
  };
  for (const Row &row :
       {Row{"0", 0}, Row{"20000", 20000}, Row{"7b", 7}, Row{"1k", 1000}, Row{"1.5M", 1'500'000},
        Row{"1.5mb", 1'500'000}, Row{"2Ki", 2048}, Row{"2GiB", 2147483648u},
        Row{"1T", 1'000'000'000'000}, Row{"1eb", 1'000'000'000'000'000'000}})
    EXPECT_EQ(kw::bytesFromWords(row.text), row.bytes) << row.text;
  for (const char *text : {"", "M", "-1", "1x", "1kk", "1 M", "nan", "inf", "0x10", "1e3", "1.2.3",
                           "20E", "16EiB", "99999999999999999999"})
    EXPECT_EQ(kw::bytesFromWords(text), std::nullopt) << text;
}

TEST(Sizes, areWrittenInTheUnitsAskedFor) {
  EXPECT_EQ(kw::sizeInWords(1536, Units::Plain), "1536");
  EXPECT_EQ(kw::sizeInWords(1536, Units::SI), "1.5 kB");
  EXPECT_EQ(kw::sizeInWords(1536, Units::IEC), "1.5 KiB");
  EXPECT_EQ(kw::sizeInWords(0, Units::IEC), "0 B");
  EXPECT_EQ(kw::sizeInWords(999, Units::SI), "999 B");
  for (std::uint64_t bytes : {999'999U, 999'500U})
    EXPECT_EQ(kw::sizeInWords(bytes, Units::SI), "1.0 MB") << "not 1000 kB";
  EXPECT_EQ(kw::sizeInWords(9'949, Units::SI), "9.9 kB");
  EXPECT_EQ(kw::sizeInWords(9'950, Units::SI), "10 kB") << "not 10.0 kB";
  EXPECT_EQ(kw::sizeInWords(123'456'789, Units::SI), "123 MB");
  EXPECT_EQ(kw::sizeInWords(UINT64_MAX, Units::IEC), "16 EiB");
  EXPECT_EQ(kw::sizeInWords(1500), "2 KB");
}

TEST(Sizes, haveTheNamesOfUnitsInTheUsersLanguage) {
  kwtest::FakeBundle bundle;
  bundle.texts = {{"MB", "Mo"}};
  EXPECT_EQ(kw::sizeInWords(3'000'000), "3 Mo");
  EXPECT_EQ(kw::sizeInWords(3'145'728, Units::Base2), "3 Mo");
}

TEST(Ages, areReadInDaysAndTheirLike) {
  struct Row {
    const char *text;
    std::int64_t seconds;
  };
  for (const Row &row : {Row{"0", 0}, Row{"1", 86400}, Row{"12h", 43200}, Row{"30d", 2592000},
                         Row{"2w", 1209600}, Row{"1m", 2592000}, Row{"1y", 31536000},
                         Row{"0.5D", 43200}, Row{"11574074.074074075", 1'000'000'000'000}})
    EXPECT_EQ(kw::ageFromWords(row.text), row.seconds) << row.text;
  for (const char *text : {"", "d", "-1d", "1 d", "1s", "1e9", "11574075", "99999999999y"})
    EXPECT_EQ(kw::ageFromWords(text), std::nullopt) << text;
}

TEST(Durations, haveMinutesOnceTheyAreLong) {
  EXPECT_EQ(kw::durationInWords(0ms), "0.0 s");
  EXPECT_EQ(kw::durationInWords(240ms), "0.2 s");
  EXPECT_EQ(kw::durationInWords(99'940ms), "99.9 s");
  EXPECT_EQ(kw::durationInWords(99'949ms), "99.9 s");
  EXPECT_EQ(kw::durationInWords(99'950ms), "1 min 40 s") << "not 100.0 s";
  EXPECT_EQ(kw::durationInWords(3725s), "62 min 5 s");
}

TEST(Bars, areAsLongAsTheShare) {
  EXPECT_EQ(kw::bar(1, 2, 4, false), "##  ");
  EXPECT_EQ(kw::bar(1, 2, 4, true), "\u2588\u2588  ");
  EXPECT_EQ(kw::bar(9, 2, 4, false), "####");
  EXPECT_EQ(kw::bar(1, 1, 4, false), "####");
  EXPECT_EQ(kw::bar(1, 0, 4, false), "    ");
  EXPECT_EQ(kw::percentInWords(1, 3), " 33%");
  EXPECT_EQ(kw::percentInWords(1, 1), "100%");
  EXPECT_EQ(kw::percentInWords(1, 0), "  0%");
}

TEST(LargestItems, keepsTheLargestAndTellsThemInOrder) {
  kw::LargestItems items(3);
  for (std::uint64_t bytes : {5u, 1u, 9u, 7u, 3u})
    items.add(bytes, std::to_string(bytes));
  std::vector<std::uint64_t> found;
  for (const kw::LargeItem &item : items.sorted())
    found.push_back(item.bytes);
  EXPECT_EQ(found, (std::vector<std::uint64_t>{9, 7, 5}));
  kw::LargestItems none(0);
  none.add(1, "a");
  EXPECT_TRUE(none.sorted().empty());
}

} // namespace
