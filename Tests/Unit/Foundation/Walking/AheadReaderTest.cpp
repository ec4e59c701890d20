// The reading of one folder ahead of a walk, batch by batch.
#include "Foundation/Walking/POSIX/AheadReader.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include "Support/Allocations.h"
#include "Support/ForkedChild.h"
#include "Support/Listings.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using kwtest::inForkedChild;
using kwtest::Listing;
using kwtest::openDescriptorCount;
using kwtest::quickFolder;
using kwtest::ScratchFolder;
using NS::AheadBatch;
using NS::AheadReader;
using NS::FTSInfo;
using Names = std::set<std::string>;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;

// Reads a folder's batches in an open folder.
class Reading {
public:
  explicit Reading(const std::string &parent, const char *name = "folder",
                   const NS::FTSSieve *sieve = nullptr)
      : parent_(::open(parent.c_str(), NS::folderFlags)),
        reader_(NS::ItemLook(physical, sieve),
                [this](AheadBatch &batch, std::unique_ptr<AheadBatch> rest) {
                  batch.rest = rest.get();
                  rests_.push_back(std::move(rest));
                }) {
    above_.descriptor = parent_.get();
    folder.above = &above_;
    folder.name = name;
    folder.level = 1;
    rests_.reserve(most);
  }
  ~Reading() { close(folder); }
  Reading(const Reading &) = delete;
  Reading &operator=(const Reading &) = delete;

  bool read() { return read(folder); }
  bool read(AheadBatch &batch) { return reader_.read(batch, buffer()); }

  // Tells whether only memory of the buffer itself was written to.
  bool staysInBuffer() const {
    return std::all_of(memory_.begin(), memory_.begin() + size, isUntouched) &&
           std::all_of(memory_.end() - size, memory_.end(), isUntouched);
  }

  AheadBatch folder;

private:
  static constexpr std::ptrdiff_t size = AheadReader::bufferSize;
  static constexpr std::size_t most = 16;
  static void close(AheadBatch &batch) {
    for (std::size_t index = 0; batch.folders && index < batch.folderCount; ++index)
      close(batch.folders[index]);
    AheadReader::forget(batch);
  }
  static bool isUntouched(char byte) { return byte == 'x'; }
  char *buffer() { return memory_.data() + size; }

  NS::Descriptor parent_;
  AheadBatch above_;
  std::vector<std::unique_ptr<AheadBatch>> rests_;
  std::vector<char> memory_ = std::vector<char>(3 * AheadReader::bufferSize, 'x');
  AheadReader reader_;
};

void addNames(const AheadBatch &batch, Names &names) {
  for (const NS::AheadItem &item : batch.content->items)
    EXPECT_TRUE(names.insert(item.name).second) << item.name;
}

Names namesIn(const AheadBatch &batch) {
  Names names;
  addNames(batch, names);
  return names;
}

std::string numbered(int number) {
  return std::to_string(number) + std::string(200, 'x');
}

TEST(AheadReader, givesTheItemsOfAFolderAndClosesIt) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  for (const char *name : {"folder/one", "folder/two"})
    scratch.file(name, "");
  Reading reading(scratch.path());
  std::size_t before = openDescriptorCount();
  ASSERT_TRUE(reading.read());
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_EQ(reading.folder.openError, 0);
  EXPECT_EQ(reading.folder.readError, 0);
  EXPECT_EQ(reading.folder.found.info, FTSInfo::D);
  EXPECT_EQ(namesIn(reading.folder), (Names{"one", "two"}));
  for (const NS::AheadItem &item : reading.folder.content->items)
    EXPECT_EQ(item.found.info, FTSInfo::F);
}

TEST(AheadReader, leavesAFolderOpenWhoseFoldersAreToBeRead) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("folder/inner"));
  scratch.file("folder/inner/file", "");
  Reading reading(scratch.path());
  ASSERT_TRUE(reading.read());
  AheadBatch *inner = reading.folder.content->items.at(0).folder;
  ASSERT_NE(inner, nullptr);
  ASSERT_TRUE(reading.read(*inner));
  EXPECT_EQ(namesIn(*inner), Names{"file"});
}

TEST(AheadReader, tellsWhyAnItemCannotBeOpened) {
  ScratchFolder scratch;
  scratch.file("file", "");
  std::size_t before = openDescriptorCount();
  {
    Reading missing(scratch.path(), "missing");
    EXPECT_TRUE(missing.read());
    EXPECT_EQ(missing.folder.openError, ENOENT);
    EXPECT_EQ(missing.folder.found.info, FTSInfo::NS);
    Reading file(scratch.path(), "file");
    EXPECT_TRUE(file.read());
    EXPECT_EQ(file.folder.openError, ENOTDIR);
    EXPECT_EQ(file.folder.found.info, FTSInfo::F);
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(AheadReader, failsWithoutDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  Reading reading(scratch.path());
  kwtest::FewDescriptorsLeft scarcity;
  EXPECT_FALSE(reading.read());
}

// From a batch that was not read yet; empty when there is none.
std::string differenceFromUnread(const AheadBatch &batch) {
  AheadBatch unread;
  if (batch.openError != unread.openError || batch.readError != unread.readError)
    return "an error";
  if (batch.descriptor != unread.descriptor)
    return "a descriptor";
  return batch.bytes() == unread.bytes() && !batch.folders ? "" : "memory";
}

// Counts the items that it is shown.
class Counter final : public NS::FTSSieve {
public:
  bool returns(const char * /*name*/, FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    ++asked;
    return true;
  }
  mutable int asked = 0;
};

// A walk whose sieve was asked already would have it asked again when it reads the
// folder by itself.
TEST(AheadReader, failsWithoutMemoryBeforeItLooksAtItems) {
  ScratchFolder scratch;
  for (int index = 0; index < 9; ++index) {
    fs::create_directories(scratch.path("folder/inner" + std::to_string(index)));
    scratch.file("folder/file" + std::to_string(index), "");
  }
  std::size_t before = openDescriptorCount();
  bool hasEnough = false;
  for (int left = 0; !hasEnough; ++left) {
    Counter sieve;
    Reading reading(scratch.path(), "folder", &sieve);
    kwtest::allocationsLeft() = left;
    bool isRead = reading.read();
    hasEnough = kwtest::allocationsLeft().has_value();
    kwtest::allocationsLeft().reset();
    ASSERT_EQ(isRead, hasEnough) << left;
    if (hasEnough)
      break;
    EXPECT_EQ(sieve.asked, 0) << left;
    AheadReader::forget(reading.folder);
    EXPECT_EQ(differenceFromUnread(reading.folder), "") << left;
    EXPECT_TRUE(reading.read()) << left;
    EXPECT_EQ(namesIn(reading.folder).size(), 18u) << left;
    EXPECT_EQ(sieve.asked, 9) << left;
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

void makeItems(const ScratchFolder &scratch, int files, int folders) {
  fs::create_directory(scratch.path("folder"));
  for (int index = 0; index < files; ++index)
    scratch.file("folder/" + numbered(index), "");
  for (int index = files; index < files + folders; ++index)
    fs::create_directory(scratch.path("folder/" + numbered(index)));
}

// Reads a folder whose listing fails after some items, and gives the check's finding.
template <typename Check>
std::string readWithFailure(const ScratchFolder &scratch, int errnum, Check check) {
  return inForkedChild([&]() -> std::string {
    Reading reading(scratch.path());
    if (!kwtest::failListingsAfterFirst(1024, errnum))
      return "no failure";
    bool isRead = reading.read();
    return check(reading.folder, isRead);
  });
}

// The records of the first listing are those of folders, which get batches.
TEST(AheadReader, isAsBeforeAfterAListingWithoutMemory) {
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, 0, 20);
  auto check = [](AheadBatch &folder, bool isRead) -> std::string {
    if (isRead)
      return "read";
    AheadReader::forget(folder);
    return differenceFromUnread(folder);
  };
  EXPECT_EQ(readWithFailure(scratch, ENOMEM, check), "");
}

TEST(AheadReader, keepsTheItemsBeforeAnError) {
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, 20, 0);
  auto check = [](const AheadBatch &folder, bool isRead) -> std::string {
    if (!isRead || folder.readError != EIO)
      return "no error";
    std::size_t items = namesIn(folder).size();
    return items > 0 && items < 20 ? "" : std::to_string(items) + " items";
  };
  EXPECT_EQ(readWithFailure(scratch, EIO, check), "");
}

TEST(AheadReader, findsNothingMoreInAFolderThatWasRemovedMeanwhile) {
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, 20, 0);
  auto check = [](const AheadBatch &folder, bool isRead) -> std::string {
    if (!isRead || folder.readError != 0)
      return "an error";
    return namesIn(folder).empty() ? "no items" : "";
  };
  EXPECT_EQ(readWithFailure(scratch, ENOENT, check), "");
}

// The first listing gives a few items, so that the next one begins within the
// buffer.
TEST(AheadReader, listsOnFromThePlaceThatItHasReached) {
  constexpr int items = 700;
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, items, 0);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              Reading reading(scratch.path());
              if (!kwtest::answerListings([](const Listing &listing) {
                    bool isFirst = ::lseek(listing.folder, 0, SEEK_CUR) == 0;
                    return std::optional(listing.answer(isFirst ? 1024 : listing.size));
                  }))
                return "no pieces";
              Names names;
              int batches = 0;
              for (AheadBatch *batch = &reading.folder; batch; batch = batch->rest) {
                if (!reading.read(*batch))
                  return "not read";
                addNames(*batch, names);
                ++batches;
                if (batch->rest &&
                    ::lseek(reading.folder.descriptor, 0, SEEK_CUR) != batch->position)
                  return "another position";
              }
              if (!reading.staysInBuffer())
                return "beyond the buffer";
              return names.size() == items && batches > 1 ? "" : std::to_string(names.size());
            }),
            "");
}

TEST(AheadReader, readsFoldersAheadThatTheVolumeDoesNotTellFromFiles) {
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, 3, 3);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              Reading reading(scratch.path());
              if (!kwtest::listWithoutTypes())
                return "types";
              if (!reading.read())
                return "not read";
              for (const NS::AheadItem &item : reading.folder.content->items)
                if ((item.found.info == FTSInfo::D) != (item.folder != nullptr))
                  return item.name;
              return reading.folder.folderCount == 3 ? "" : "other folders";
            }),
            "");
}

TEST(AheadReader, goesDownSoManyLevels) {
  ScratchFolder scratch(quickFolder());
  std::string path = scratch.path("folder");
  for (int level = 1; level < AheadReader::levels + 3; ++level)
    path += "/folder";
  fs::create_directories(path);
  Reading reading(scratch.path());
  AheadBatch *folder = &reading.folder;
  int levels = 0;
  for (; folder; folder = folder->content->items.at(0).folder) {
    ASSERT_TRUE(reading.read(*folder));
    ++levels;
  }
  EXPECT_EQ(levels, AheadReader::levels);
}

// As a program has that was started without standard input.
TEST(AheadReader, readsAFolderWhoseDescriptorIs0) {
  ScratchFolder scratch(quickFolder());
  makeItems(scratch, 1, 1);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              Reading reading(scratch.path());
              ::close(0);
              if (!reading.read() || reading.folder.openError != 0)
                return "not read";
              if (namesIn(reading.folder).size() != 2)
                return "other items";
              AheadReader::forget(reading.folder);
              return ::fcntl(0, F_GETFD) < 0 ? "" : "left open";
            }),
            "");
}

} // namespace
