// Records made from those of getattrlist and getattrlistbulk, over the shim,
// and the sizes that the rooms above get from them.
#include "Foundation/Files/BulkAttributes.h"

#include "Darwin/Shim.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"
#include "Tools/RVFileSizer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

template <typename Value> Value valueAt(const char *bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

struct Entry {
  std::uint32_t type = 0;
  std::uint64_t size = 0;
  std::uint32_t block = 0;
  friend bool operator==(const Entry &, const Entry &) = default;
};
using Entries = std::map<std::string, Entry>;

class BulkAttributes : public ::testing::Test {
protected:
  kwtest::darwin::ShimScope shim;
  kwtest::ScratchFolder folder;
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();

  static NS::AttributeList entryList() {
    NS::AttributeList list;
    list.common = NS::CommonAttributeName | NS::CommonAttributeObjectType;
    list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
    return list;
  }

  // -1 with errno, as the call; the records are added to the entries.
  int nextBatch(int descriptor, std::vector<char> &buffer, std::uint32_t wanted, Entries &entries) {
    std::uint32_t count = wanted, base = 0, state = 0;
    int result = bulk.getdirentriesattr(descriptor, entryList(), buffer.data(), buffer.size(),
                                        count, base, state, 0);
    EXPECT_LE(count, wanted);
    const char *record = buffer.data();
    for (std::uint32_t index = 0; index < count; ++index) {
      EXPECT_LE(record + valueAt<std::uint32_t>(record), buffer.data() + buffer.size());
      const char *name = record + 4 + valueAt<std::int32_t>(record + 4);
      EXPECT_EQ(std::strlen(name) + 1, valueAt<std::uint32_t>(record + 8));
      bool isNew = entries
                       .try_emplace(name, Entry{valueAt<std::uint32_t>(record + 12),
                                                valueAt<std::uint64_t>(record + 16),
                                                valueAt<std::uint32_t>(record + 24)})
                       .second;
      EXPECT_TRUE(isNew) << name;
      record += valueAt<std::uint32_t>(record);
    }
    return result;
  }

  Entries list(std::size_t bufferSize = 4544, std::uint32_t wanted = 16) {
    Entries entries;
    std::vector<char> buffer(bufferSize);
    int descriptor = bulk.openFolder(folder.path().c_str());
    int result = 0;
    while (result == 0)
      result = nextBatch(descriptor, buffer, wanted, entries);
    EXPECT_EQ(result, 1);
    bulk.closeFolder(descriptor);
    return entries;
  }
};

TEST_F(BulkAttributes, packTheRecordOfOneItemInFortyBytes) {
  std::string path = folder.file("file", std::string(5000, 'x'));
  NS::AttributeList list;
  list.common = NS::CommonAttributeReturnedAttributes | NS::CommonAttributeObjectType;
  list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
  std::array<char, 40> record{};
  ASSERT_EQ(bulk.getattrlist(path.c_str(), list, record.data(), record.size(), 9), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data()), 40u);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 24), NS::VnodeRegular);
  EXPECT_EQ(valueAt<std::uint64_t>(record.data() + 28), 5000u);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 36), 4096u);
  ASSERT_EQ(bulk.getattrlist(folder.path().c_str(), list, record.data(), record.size(), 9), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(record.data() + 24), NS::VnodeDirectory);
  EXPECT_EQ(bulk.getattrlist("/nowhere", list, record.data(), record.size(), 9), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(BulkAttributes, listEveryEntryOnce) {
  Entries expected;
  for (int index = 0; index < 200; ++index) {
    std::string name(static_cast<std::size_t>(index * 7 % 250 + 1), 'n');
    name.append(std::to_string(index));
    if (index % 3 == 0) {
      fs::create_directory(folder.path(name));
      expected[name] = {NS::VnodeDirectory, 0, 0};
    } else {
      folder.file(name, std::string(static_cast<std::size_t>(index), 'x'));
      expected[name] = {NS::VnodeRegular, static_cast<std::uint64_t>(index), 4096};
    }
  }
  fs::create_symlink("nothing", folder.path("link"));
  expected["link"] = {NS::VnodeLink, 7, 4096};
  for (std::size_t size : {400u, 700u, 4544u, 100000u})
    for (std::uint32_t wanted : {16u, 17u, 100u})
      EXPECT_EQ(list(size, wanted), expected) << size << " bytes, " << wanted << " entries";
}

TEST_F(BulkAttributes, giveNoMoreThanAreWantedWhereAllAreSmall) {
  for (char name = 'a'; name <= 'z'; ++name)
    fs::create_directory(folder.path(std::string(1, name)));
  EXPECT_EQ(list().size(), 26u); // each batch is compared with the request
}

// After the largest name the buffer must not take more of the smallest than are
// wanted.
TEST_F(BulkAttributes, giveNoMoreThanAreWantedBehindALargeName) {
  fs::create_directory(folder.path(std::string(255, 'A')));
  for (char name = 'a'; name <= 'z'; ++name)
    fs::create_directory(folder.path(std::string(1, name)));
  EXPECT_EQ(list().size(), 27u);
  EXPECT_EQ(list(400).size(), 27u);
}

// The platform's names have up to 255 characters of three bytes each: more than
// the buffer holds that takes no more of the smallest entries than are wanted.
TEST_F(BulkAttributes, readTheLongestNameIntoALargerBuffer) {
  std::string longest(765, 'n');
  fs::create_directory(folder.path("a"));
  folder.file("long", "x");
  fs::create_directory(folder.path("z"));
  shim->names["long"] = longest;
  EXPECT_EQ(list(), (Entries{{"a", {NS::VnodeDirectory, 0, 0}},
                             {longest, {NS::VnodeRegular, 1, 4096}},
                             {"z", {NS::VnodeDirectory, 0, 0}}}));
}

TEST_F(BulkAttributes, leaveOutUnreadableItems) {
  for (const char *name : {"a", "b", "c"})
    folder.file(name, "x");
  shim->unreadable = {"b"};
  EXPECT_EQ(list(),
            (Entries{{"a", {NS::VnodeRegular, 1, 4096}}, {"c", {NS::VnodeRegular, 1, 4096}}}));
  shim->unreadable = {"a", "b", "c"};
  EXPECT_EQ(list(), Entries());
}

TEST_F(BulkAttributes, endAnEmptyFolderAtTheFirstCall) {
  EXPECT_EQ(list(), Entries());
  EXPECT_EQ(shim->bulkSizes.size(), 1u);
}

TEST_F(BulkAttributes, failForABufferTooSmallForOneEntryAndForTooFewWanted) {
  folder.file(std::string(255, 'n'), "");
  int descriptor = bulk.openFolder(folder.path().c_str());
  Entries entries;
  std::vector<char> small(200), buffer(4544);
  EXPECT_EQ(nextBatch(descriptor, small, 16, entries), -1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(nextBatch(descriptor, buffer, 15, entries), -1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(entries, Entries());
  EXPECT_EQ(nextBatch(descriptor, buffer, 16, entries), 0) << "nothing was passed over";
  EXPECT_EQ(entries.size(), 1u);
  bulk.closeFolder(descriptor);
}

TEST_F(BulkAttributes, failOnlyWithErrorsThatMayPass) {
  folder.file("file", "");
  kwtest::LogRecorder log;
  int descriptor = bulk.openFolder(folder.path().c_str());
  Entries entries;
  std::vector<char> buffer(4544);
  shim->bulkErrors = {EINTR, EAGAIN, ENOMEM};
  EXPECT_EQ(nextBatch(descriptor, buffer, 16, entries), -1) << "an interrupted call is repeated";
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(nextBatch(descriptor, buffer, 16, entries), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(log.lines(), std::vector<std::string>());
  shim->bulkErrors = {EIO};
  EXPECT_EQ(nextBatch(descriptor, buffer, 16, entries), 1);
  EXPECT_EQ(entries, Entries());
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"A folder cannot be read to its end: Input/output error"});
  bulk.closeFolder(descriptor);
}

TEST_F(BulkAttributes, openFoldersOnlyAndWaitForNothing) {
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  fs::create_directory_symlink("/etc", folder.path("link"));
  folder.file("file", "");
  for (const char *name : {"fifo", "link", "file", "missing"})
    EXPECT_EQ(bulk.openFolder(folder.path(name).c_str()), -1) << name;
}

TEST_F(BulkAttributes, measureATree) {
  folder.file("file", std::string(5000, 'x'));
  fs::create_directories(folder.path("a/b"));
  folder.file("a/b/file", "x");
  fs::create_symlink("nothing", folder.path("a/link"));
  const kw::RVFileSizer &sizer = kw::RVFileSizer::shared();
  EXPECT_EQ(sizer.alternativeItemSizeAtPath(folder.path()), 8192u + 4096u + 4096u);
}

} // namespace
