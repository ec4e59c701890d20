// Times and the hidden flag.
#include "Additions/NSFileManager+FileAttributes.h"

#include "Foundation/Files/FileFlags.h"
#include "Foundation/Values/String.h"
#include "Support/FakeItemServices.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <sys/stat.h>

namespace {

class FakeStatus final : public NS::FileFlags {
public:
  NS::FileStatus values;
  int failure = 0;

  int status(const std::string &, NS::FileStatus &status) override {
    if (failure != 0) {
      errno = failure;
      return -1;
    }
    status = values;
    return 0;
  }
  int clear(const std::string &, std::uint32_t) override { return -1; }
  void clearBeneath(const std::string &, std::uint32_t, const FailureHandler &) override {}

private:
  NS::ScopedOverride<NS::FileFlags> override_{*this};
};

class FileTimes : public ::testing::Test {
protected:
  FakeStatus status;
  kwtest::FakeMetadata index;
  NS::FileManager &manager = NS::FileManager::defaultManager();

  void SetUp() override {
    status.values.birthTime = 1000;
    status.values.modificationTime = -2000;
    status.values.accessTime = 3000;
  }
  void indexDate(const char *name, double seconds) {
    index.attributes[name] = NS::Date::dateWithTimeIntervalSince1970(seconds);
  }
};

TEST_F(FileTimes, comeFromTheItemsStatus) {
  EXPECT_EQ(kw::statCreationTimeAtPath(manager, "/x"), 1000);
  EXPECT_EQ(kw::statModificationTimeAtPath(manager, "/x"), -2000);
}

TEST_F(FileTimes, areZeroWithoutAPathOrAnItem) {
  EXPECT_EQ(kw::statCreationTimeAtPath(manager, std::nullopt), 0);
  EXPECT_EQ(kw::statModificationTimeAtPath(manager, std::nullopt), 0);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, std::nullopt), 0);
  status.failure = ENOENT;
  EXPECT_EQ(kw::statCreationTimeAtPath(manager, "/x"), 0);
  EXPECT_EQ(kw::statModificationTimeAtPath(manager, "/x"), 0);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 0);
}

TEST_F(FileTimes, passThroughADouble) {
  status.values.birthTime = (std::int64_t{1} << 53) + 1;
  EXPECT_EQ(kw::statCreationTimeAtPath(manager, "/x"), std::int64_t{1} << 53);
  status.values.birthTime = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(kw::statCreationTimeAtPath(manager, "/x"), std::numeric_limits<std::int64_t>::max());
}

TEST_F(FileTimes, preferTheIndexsLastUse) {
  indexDate(NS::MetadataLastUsedDateKey, 5000.9);
  indexDate(NS::MetadataContentModificationDateKey, 6000);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 5000);
  indexDate(NS::MetadataLastUsedDateKey, -5000.9);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), -5000) << "the fraction is cut off";
}

TEST_F(FileTimes, takeTheIndexsChangeWithoutALastUse) {
  indexDate(NS::MetadataContentModificationDateKey, 6000);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 6000);
}

TEST_F(FileTimes, takeTheLastAccessOfAnItemThatWasNeverIndexed) {
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 3000) << "no attribute";
  index.knowsItems = false;
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 3000) << "no item";
}

TEST_F(FileTimes, takeTheLastAccessWhenTheIndexHoldsNoDate) {
  index.attributes[NS::MetadataLastUsedDateKey] = NS::String::stringWithString("yesterday");
  indexDate(NS::MetadataContentModificationDateKey, 6000);
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 3000)
      << "the second attribute counts only when the first is absent";
}

TEST_F(FileTimes, surviveImpossibleDates) {
  for (double seconds : {1e300, -1e300, std::nan("")}) {
    indexDate(NS::MetadataLastUsedDateKey, seconds);
    kw::statAccessTimeAtPath(manager, "/x");
  }
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, "/x"), 0) << "what is no number is no time";
}

TEST_F(FileTimes, giveTheLastAccessAsADate) {
  EXPECT_EQ(kw::lastAccessDateAtPath(manager, "/x")->timeIntervalSince1970(), 3000.0);
  EXPECT_EQ(kw::lastAccessDateAtPath(manager, std::nullopt)->timeIntervalSince1970(), 0.0);
}

TEST(RealFileTimes, areThoseOfTheFileSystem) {
  kwtest::ScratchFolder folder;
  std::string file = folder.file("f", "x");
  struct timespec times[2] = {{111, 999999999}, {222, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  NS::FileManager &manager = NS::FileManager::defaultManager();
  EXPECT_EQ(kw::statAccessTimeAtPath(manager, file), 111);
  EXPECT_EQ(kw::statModificationTimeAtPath(manager, file), 222);
  EXPECT_GT(kw::statCreationTimeAtPath(manager, file), 1500000000);
}

TEST(IsFileHidden, goesByTheFlagAlone) {
  FakeStatus status;
  NS::FileManager &manager = NS::FileManager::defaultManager();
  EXPECT_FALSE(kw::isFileHidden(manager, "/x/.profile"));
  status.values.flags = 0x8000;
  EXPECT_TRUE(kw::isFileHidden(manager, "/x/visible"));
  status.values.flags = ~std::uint32_t{0x8000};
  EXPECT_FALSE(kw::isFileHidden(manager, "/x/visible"));
}

TEST(IsFileHidden, logsAnItemThatCannotBeExamined) {
  kwtest::LogRecorder log;
  EXPECT_FALSE(kw::isFileHidden(NS::FileManager::defaultManager(), "/no/such/item"));
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Failed to stat /no/such/item"});
}

TEST(Date, describesItselfInUniversalTime) {
  auto at = [](double seconds) {
    return NS::Date::dateWithTimeIntervalSince1970(seconds)->description();
  };
  EXPECT_EQ(at(0), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(at(978307200.5), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(at(-0.5), "1969-12-31 23:59:59 +0000");
  EXPECT_FALSE(at(1e300).empty());
  EXPECT_FALSE(at(std::nan("")).empty());
}

TEST(Date, equalsTheSameMoment) {
  auto one = NS::Date::dateWithTimeIntervalSince1970(1);
  EXPECT_TRUE(one->isEqual(*NS::Date::dateWithTimeIntervalSince1970(1)));
  EXPECT_FALSE(one->isEqual(*NS::Date::dateWithTimeIntervalSince1970(2)));
  EXPECT_FALSE(one->isEqual(*NS::String::stringWithString("1")));
  EXPECT_EQ(one->hash(), NS::Date::dateWithTimeIntervalSince1970(1)->hash());
}

} // namespace
