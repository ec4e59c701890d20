// The packed records themselves: their layout, their batches, their limits.
#include "Foundation/Files/BulkAttributes.h"

#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/ScratchFolder.h"
#include "Support/SpecialItems.h"
#include "Support/WatchedCalls.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using kwtest::ScratchFolder;

template <typename Value> Value valueAt(const char *bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

NS::AttributeList entryList() {
  NS::AttributeList list;
  list.common = NS::CommonAttributeName | NS::CommonAttributeObjectType;
  list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
  return list;
}

struct Entry {
  std::string name;
  std::uint32_t type;
  std::uint64_t size;
  std::uint32_t block;
  auto operator<=>(const Entry &) const = default;
};

struct Listing {
  std::multiset<Entry> entries;
  std::vector<std::uint32_t> counts; // of each call
};

Listing list(const std::string &path, std::size_t bufferSize, std::uint32_t wanted) {
  Listing listing;
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  int descriptor = bulk.openFolder(path.c_str());
  std::vector<char> buffer(bufferSize);
  for (int result = 0; result == 0;) {
    std::uint32_t count = wanted;
    std::uint32_t base = 0;
    std::uint32_t state = 0;
    result = bulk.getdirentriesattr(descriptor, entryList(), buffer.data(), buffer.size(), count,
                                    base, state, 0);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    listing.counts.push_back(count);
    const char *entry = buffer.data();
    for (std::uint32_t index = 0; index < count; ++index) {
      auto length = valueAt<std::uint32_t>(entry);
      auto nameOffset = valueAt<std::int32_t>(entry + 4);
      auto nameLength = valueAt<std::uint32_t>(entry + 8);
      EXPECT_EQ(length % 4, 0u);
      EXPECT_EQ(nameOffset, 24);
      EXPECT_EQ(entry[4 + nameOffset + static_cast<std::int32_t>(nameLength) - 1], '\0');
      listing.entries.insert(
          {std::string(entry + 4 + nameOffset), valueAt<std::uint32_t>(entry + 12),
           valueAt<std::uint64_t>(entry + 16), valueAt<std::uint32_t>(entry + 24)});
      entry += length;
    }
  }
  bulk.closeFolder(descriptor);
  return listing;
}

// The result of the next call for an open folder, with the cause of a failure or
// the number of records.
std::string resultOfListing(int folder) {
  std::array<char, 400> buffer{};
  std::uint32_t count = 16, word = 0;
  int result = NS::BulkAttributes::shared().getdirentriesattr(folder, entryList(), buffer.data(),
                                                              buffer.size(), count, word, word, 0);
  if (result < 0)
    return std::to_string(result) + " " + std::to_string(errno);
  return std::to_string(result) + (count > 0 ? " with " + std::to_string(count) : "");
}

TEST(BulkAttributes, packTheRecordOfOneItemInFortyBytes) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", std::string(5000, 'x'));
  NS::AttributeList list;
  list.common = NS::CommonAttributeReturnedAttributes | NS::CommonAttributeObjectType;
  list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
  std::array<char, 40> record{};
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  ASSERT_EQ(bulk.getattrlist(path.c_str(), list, record.data(), record.size(), 9), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data()), 40u);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 4), 0x80000008u);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 16), 0xAu);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 24), NS::VnodeRegular);
  EXPECT_EQ(valueAt<std::uint64_t>(record.data() + 28), 5000u);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 36), 4096u);
  ASSERT_EQ(bulk.getattrlist(scratch.path().c_str(), list, record.data(), record.size(), 9), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 16), 0u) << "a folder has no file attributes";
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 24), NS::VnodeDirectory);
  EXPECT_EQ(bulk.getattrlist(path.c_str(), list, record.data(), 39, 9), -1);
  EXPECT_EQ(errno, ERANGE);
  list.common |= NS::CommonAttributeName;
  EXPECT_EQ(bulk.getattrlist(path.c_str(), list, record.data(), record.size(), 9), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data()), 40u) << "one record has no name";
  EXPECT_EQ(bulk.getattrlist("/nowhere", list, record.data(), record.size(), 9), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(BulkAttributes, listEveryEntryOnceInBatches) {
  ScratchFolder scratch;
  std::multiset<Entry> expected;
  for (int index = 0; index < 333; ++index) {
    std::string name(static_cast<std::size_t>(index % 250 + 1), 'n');
    name.append(std::to_string(index));
    scratch.file(name, std::string(static_cast<std::size_t>(index), 'x'));
    expected.insert({name, NS::VnodeRegular, static_cast<std::uint64_t>(index), 4096});
  }
  std::filesystem::create_directory(scratch.path("folder"));
  std::filesystem::create_symlink("nothing", scratch.path("link"));
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  expected.insert({"folder", NS::VnodeDirectory, 0, 0});
  expected.insert({"link", NS::VnodeLink, 7, 4096});
  expected.insert({"fifo", NS::VnodeFIFO, 0, 4096});
  for (std::size_t bufferSize : {284u, 300u, 1000u, 4544u, 100000u}) {
    Listing listing = list(scratch.path(), bufferSize, 16);
    EXPECT_EQ(listing.entries, expected) << bufferSize;
    for (std::uint32_t count : listing.counts)
      EXPECT_LE(count, 16u);
  }
  EXPECT_EQ(list(scratch.path(), 4544, 1).entries, expected);
  EXPECT_EQ(list(scratch.path(), 1u << 20, 1000).counts, std::vector<std::uint32_t>{336})
      << "as many as fit";
}

TEST(BulkAttributes, tellDevicesAndSocketsApart) {
  ScratchFolder scratch;
  ASSERT_TRUE(kwtest::makeSocket(scratch.path("socket")));
  std::multiset<Entry> expected{{"socket", NS::VnodeSocket, 0, 4096}};
  if (kwtest::makeBlockDevice(scratch.path("device")))
    expected.insert({"device", NS::VnodeBlockDevice, 0, 4096});
  EXPECT_EQ(list(scratch.path(), 4544, 16).entries, expected);
}

TEST(BulkAttributes, endAnEmptyFolderAtTheFirstCall) {
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  errno = EIO; // of an earlier call
  Listing listing = list(scratch.path(), 4544, 16);
  EXPECT_EQ(listing.counts, std::vector<std::uint32_t>{0});
  EXPECT_EQ(log.lines().size(), 0u);
}

TEST(BulkAttributes, endAFolderThatWasRemovedWithoutALine) {
  ScratchFolder scratch;
  std::filesystem::create_directory(scratch.path("folder"));
  kwtest::LogRecorder log;
  NS::Descriptor folder(NS::BulkAttributes::shared().openFolder(scratch.path("folder").c_str()));
  std::filesystem::remove(scratch.path("folder"));
  EXPECT_EQ(resultOfListing(folder.get()), "1");
  EXPECT_EQ(log.lines().size(), 0u);
}

TEST(BulkAttributes, failForCausesThatMayPass) {
  ScratchFolder scratch;
  NS::Descriptor folder(NS::BulkAttributes::shared().openFolder(scratch.path().c_str()));
  for (int failure : {ENOMEM, EAGAIN})
    EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
                return kwtest::refuseCalls(SYS_getdents64, failure) ? resultOfListing(folder.get())
                                                                    : "the call still works";
              }),
              "-1 " + std::to_string(failure));
}

TEST(BulkAttributes, failForABufferThatHoldsNotEvenOneEntry) {
  ScratchFolder scratch;
  scratch.file("file", "");
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  int descriptor = bulk.openFolder(scratch.path().c_str());
  std::array<char, 16> buffer{};
  std::uint32_t count = 16;
  std::uint32_t word = 0;
  EXPECT_EQ(bulk.getdirentriesattr(descriptor, entryList(), buffer.data(), buffer.size(), count,
                                   word, word, 0),
            -1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(count, 0u);
  bulk.closeFolder(descriptor);
}

// A caller repeats the call after a failure, for ever.
TEST(BulkAttributes, endWhereAFolderCannotBeReadOn) {
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  std::string path = scratch.file("file", "");
  int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 400> buffer{};
  for (int descriptor : {file, -1}) {
    std::uint32_t count = 16, word = 0;
    EXPECT_EQ(NS::BulkAttributes::shared().getdirentriesattr(descriptor, entryList(), buffer.data(),
                                                             buffer.size(), count, word, word, 0),
              1);
    EXPECT_EQ(count, 0u);
  }
  ::close(file);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{path + " cannot be read to its end: Not a directory",
                                      " cannot be read to its end: Bad file descriptor"}));
}

// The descriptor of the folder comes to mean a device, which cannot be listed.
TEST(BulkAttributes, handOverTheRecordsBeforeAFailureFirst) {
  ScratchFolder scratch;
  scratch.file("file", "");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              NS::Descriptor folder(
                  NS::BulkAttributes::shared().openFolder(scratch.path().c_str()));
              NS::Descriptor device(::open("/dev/null", O_RDONLY | O_CLOEXEC));
              int calls = 0;
              if (!kwtest::beforeCalls(SYS_getdents64, [&](const kwtest::CallArguments &) {
                    if (++calls == 2)
                      ::dup3(device.get(), folder.get(), O_CLOEXEC);
                  }))
                return "the calls cannot be watched";
              kwtest::LogRecorder log;
              std::string first = resultOfListing(folder.get()) + ", lines: ";
              first += std::to_string(log.lines().size());
              std::string second = resultOfListing(folder.get()) + ", lines: ";
              return first + "; " + second + std::to_string(log.lines().size());
            }),
            "0 with 1, lines: 0; 1, lines: 1");
}

TEST(BulkAttributes, openFoldersOnlyAndWaitForNothing) {
  ScratchFolder scratch;
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  std::filesystem::create_directory_symlink("/etc", scratch.path("link"));
  scratch.file("file", "");
  for (const char *name : {"fifo", "link", "file", "missing"})
    EXPECT_EQ(NS::BulkAttributes::shared().openFolder(scratch.path(name).c_str()), -1) << name;
}

} // namespace
