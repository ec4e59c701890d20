// Measuring by bulk attributes, on real folders and on made-up records.
#include "Tools/RVFileSizer.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Files/BulkAttributes.h"
#include "Support/LogRecorder.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"
#include "Support/UncompressedMode.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>

namespace {

using kw::RVFileSizer;
using kwtest::LogRecorder;
using kwtest::ScratchFolder;
using Strings = std::vector<std::string>;

const RVFileSizer &sizer() {
  return RVFileSizer::shared();
}

std::uint64_t roundedSize(const struct stat &status) {
  auto size = static_cast<std::uint64_t>(status.st_size);
  auto block = static_cast<std::uint64_t>(status.st_blksize);
  return (size + block - 1) / block * block;
}

// An own computation by path and readdir: every regular file and link rounded
// up, nothing for the rest.
std::uint64_t roundedByPath(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))
    return roundedSize(status);
  if (!S_ISDIR(status.st_mode))
    return 0;
  std::uint64_t total = 0;
  DIR *folder = ::opendir(path.c_str());
  while (const dirent *entry = ::readdir(folder)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..")
      total += roundedByPath(path + "/" + name);
  }
  ::closedir(folder);
  return total;
}

TEST(RVFileSizerBulk, equalsAComputationFromStatOnAThousandRandomTrees) {
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    ScratchFolder scratch(kwtest::quickFolder());
    kwtest::RandomTree tree(scratch.path(), seed, 40);
    ASSERT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), roundedByPath(scratch.path()))
        << seed;
  }
}

TEST(RVFileSizerBulk, equalsThatComputationOnADiskAndInLargeFolders) {
  ScratchFolder scratch;
  kwtest::RandomTree tree(scratch.path(), 3, 400);
  std::filesystem::create_directory(scratch.path("large"));
  for (int index = 0; index < 1000; ++index) {
    std::string name("large/");
    name.append(static_cast<std::size_t>(index % 240 + 1), 'n').append(std::to_string(index));
    scratch.file(name, "x");
  }
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), roundedByPath(scratch.path()));
}

TEST(RVFileSizerBulk, measuresAFileAndALinkAsThemselves) {
  ScratchFolder scratch;
  scratch.file("file", std::string(5000, 'x'));
  scratch.file("empty", "");
  std::filesystem::create_symlink("file", scratch.path("link"));
  std::filesystem::create_hard_link(scratch.path("file"), scratch.path("hard"));
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path("file")), 8192u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path("empty")), 0u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path("link")), 4096u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), 8192u * 2 + 4096);
}

TEST(RVFileSizerBulk, measuresOtherKindsAsNothing) {
  ScratchFolder scratch;
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path("fifo")), 0u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/dev/null"), 0u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), 0u);
}

TEST(RVFileSizerBulk, doesNotLookAtTheModeOfTheOthers) {
  ScratchFolder scratch;
  scratch.file("file", std::string(5000, 'x'));
  kwtest::UncompressedMode mode;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), 8192u);
}

TEST(RVFileSizerBulk, logsAMissingItem) {
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/nowhere/at/all"), 0u);
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(""), 0u);
  EXPECT_EQ(log.lines(), Strings(2, "Attribute getting error: No such file or directory"));
}

TEST(RVFileSizerBulk, doesNotTakeAPathWithANulForItsBeginning) {
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(std::string("/etc\0/x", 7)), 0u);
  EXPECT_EQ(log.lines(), Strings{"Attribute getting error: Invalid argument"});
}

// Makes folders of long names below the root, one in the other, until the path
// has exactly the length, and gives it.
std::string folderOfPathLength(const std::string &root, std::size_t length) {
  std::string path = root;
  while (path.size() < length) {
    std::size_t left = length - path.size() - 1;
    std::size_t next = std::min<std::size_t>(left, 200);
    if (left - next == 1)
      --next; // a last component needs a slash and a letter
    path.append("/").append(next, 'd');
    EXPECT_EQ(::mkdir(path.c_str(), 0755), 0) << path.size();
  }
  return path;
}

TEST(RVFileSizerBulk, passesOverAFolderWhosePathIsTooLong) {
  for (std::size_t length : {1023u, 1024u}) {
    ScratchFolder scratch;
    std::string path = folderOfPathLength(scratch.path(), length);
    ASSERT_EQ(path.size(), length);
    std::filesystem::current_path(path);
    ASSERT_EQ(::mkdir("x", 0755), 0);
    for (const char *name : {"file", "x/file"}) {
      int descriptor = ::open(name, O_WRONLY | O_CREAT, 0644);
      ASSERT_EQ(::write(descriptor, "x", 1), 1);
      ::close(descriptor);
    }
    std::filesystem::current_path("/");
    LogRecorder log;
    EXPECT_EQ(sizer().alternativeItemSizeAtPath(scratch.path()), 4096u)
        << "the file beside the folder counts, the one in it does not";
    EXPECT_EQ(log.lines(), Strings{"Attribute getting error: File name too long"}) << length;
  }
}

TEST(RVFileSizerBulk, refusesARootWhosePathIsTooLong) {
  ScratchFolder scratch;
  std::string path = folderOfPathLength(scratch.path(), 1025);
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath(path), 0u);
  EXPECT_EQ(log.lines(), Strings{"Attribute getting error: File name too long"});
}

TEST(RVFileSizerBulk, leavesThePathBufferAsItWas) {
  ScratchFolder scratch;
  kwtest::RandomTree tree(scratch.path(), 9, 80);
  std::vector<char> guarded(RVFileSizer::alternativePathBufferSize + 16, '\x55');
  scratch.path().copy(guarded.data(), scratch.path().size());
  guarded[scratch.path().size()] = '\0';
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  int descriptor = bulk.openFolder(guarded.data());
  EXPECT_EQ(
      sizer().alternativeDirectorySizeDescriptor(descriptor, guarded.data(), scratch.path().size()),
      roundedByPath(scratch.path()));
  bulk.closeFolder(descriptor);
  EXPECT_STREQ(guarded.data(), scratch.path().c_str());
  for (std::size_t at = RVFileSizer::alternativePathBufferSize; at < guarded.size(); ++at)
    EXPECT_EQ(guarded[at], '\x55');
}

// --- Made-up records ---

template <typename Value> void put(std::string &bytes, Value value) {
  bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

std::string packedEntry(std::string name, std::uint32_t type, std::uint64_t size,
                        std::uint32_t block) {
  std::string rest;
  put(rest, std::int32_t{24});
  put(rest, static_cast<std::uint32_t>(name.size() + 1));
  put(rest, type);
  put(rest, size);
  put(rest, block);
  rest += name.append(4 - name.size() % 4, '\0');
  std::string entry;
  put(entry, static_cast<std::uint32_t>(rest.size() + 4));
  return entry + rest;
}

struct Answer {
  int result = 1;
  std::string bytes;
  std::uint32_t count = 0;
  int errnum = 0;
};

// Folders by path, each a queue of answers.
class FakeBulk final : public NS::BulkAttributes {
public:
  std::map<std::string, std::deque<Answer>> folders;
  std::uint32_t rootType = NS::VnodeDirectory;
  std::uint64_t rootSize = 0;
  std::uint32_t rootBlock = 4096;
  std::vector<int> numbers{0, 1, 2, 3}; // the descriptors, in the order of the openings
  int open = 0;
  int calls = 0;

  int getattrlist(const char * /*path*/, const NS::AttributeList &list, void *buffer,
                  std::size_t size, std::uint32_t options) override {
    EXPECT_EQ(size, 40u);
    EXPECT_EQ(options, 0x9u);
    EXPECT_EQ(list.bitmapCount, 5);
    EXPECT_EQ(list.common, 0x80000008u);
    EXPECT_EQ(list.file, 0xAu);
    std::string record(24, '\0');
    put(record, rootType);
    put(record, rootSize);
    put(record, rootBlock);
    std::memcpy(buffer, record.data(), record.size());
    return 0;
  }
  int getdirentriesattr(int descriptor, const NS::AttributeList &list, void *buffer,
                        std::size_t size, std::uint32_t &count, std::uint32_t &base,
                        std::uint32_t &state, std::uint32_t options) override {
    ++calls;
    EXPECT_EQ(size, 4544u);
    EXPECT_EQ(count, 16u);
    EXPECT_EQ(base, 0u);
    EXPECT_EQ(state, 0u);
    EXPECT_EQ(options, 0u);
    EXPECT_EQ(list.common, 0x9u);
    EXPECT_EQ(list.file, 0xAu);
    base = state = 77; // must be reset before the next call
    std::deque<Answer> &answers = folders.at(paths_.at(descriptor));
    Answer answer = answers.front();
    answers.pop_front();
    std::memcpy(buffer, answer.bytes.data(), answer.bytes.size());
    count = answer.count;
    errno = answer.errnum;
    return answer.result;
  }
  int openFolder(const char *path) override {
    if (!folders.contains(path)) {
      errno = EACCES;
      return -1;
    }
    int descriptor = numbers.at(paths_.size());
    paths_[descriptor] = path;
    ++open;
    return descriptor;
  }
  void closeFolder(int /*descriptor*/) override { --open; }

private:
  std::map<int, std::string> paths_;
  NS::ScopedOverride<NS::BulkAttributes> override_{*this};
};

TEST(RVFileSizerBulk, roundsTo4096WhenTheVolumeReportsNoBlockSize) {
  FakeBulk bulk;
  bulk.folders["/r"] = {{1, packedEntry("a", NS::VnodeRegular, 1, 0), 1, 0}};
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 4096u);
  bulk.rootType = NS::VnodeRegular;
  bulk.rootSize = 4097;
  bulk.rootBlock = 0;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 8192u);
  bulk.rootBlock = 1000;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 5000u);
}

TEST(RVFileSizerBulk, repeatsAFailedCallUntilItSucceeds) {
  FakeBulk bulk;
  std::deque<Answer> answers(5, Answer{-1, "", 0, EIO});
  answers.push_back({0, packedEntry("a", NS::VnodeRegular, 1, 512), 1, 0});
  answers.push_back({-1, "", 0, EINTR});
  answers.push_back({1, packedEntry("b", NS::VnodeLink, 1, 512), 1, 0});
  bulk.folders["/r"] = answers;
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 1024u);
  Strings expected(5, "Attribute getting error: Input/output error");
  expected.push_back("Attribute getting error: Interrupted system call");
  EXPECT_EQ(log.lines(), expected);
  EXPECT_EQ(bulk.calls, 8);
  EXPECT_EQ(bulk.open, 0);
}

TEST(RVFileSizerBulk, goesOnBehindAFolderThatCannotBeOpened) {
  FakeBulk bulk;
  bulk.folders["/r"] = {{1,
                         packedEntry("closed", NS::VnodeDirectory, 0, 0) +
                             packedEntry("open", NS::VnodeDirectory, 0, 0) +
                             packedEntry("file", NS::VnodeRegular, 100, 512),
                         3, 0}};
  bulk.folders["/r/open"] = {{1, packedEntry("inner", NS::VnodeRegular, 600, 512), 1, 0}};
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 512u + 1024);
  EXPECT_EQ(log.lines(), Strings{"Attribute getting error: Permission denied"});
  EXPECT_EQ(bulk.open, 0);
}

TEST(RVFileSizerBulk, logsARootThatCannotBeOpened) {
  FakeBulk bulk;
  LogRecorder log;
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 0u);
  EXPECT_EQ(log.lines(), Strings{"Attribute getting error: Permission denied"});
}

TEST(RVFileSizerBulk, countsNothingForOtherTypes) {
  FakeBulk bulk;
  std::string bytes;
  for (std::uint32_t type : {0u, 3u, 4u, 6u, 7u, 99u})
    bytes += packedEntry("x", type, 5000, 512);
  bulk.folders["/r"] = {{1, bytes, 6, 0}};
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 0u);
}

TEST(RVFileSizerBulk, isNotMisledByRecordsThatContradictThemselves) {
  std::string good = packedEntry("a", NS::VnodeRegular, 1, 512);
  for (std::uint32_t length : {0u, 4u, 27u, 4544u, 5000u, 0xFFFFFFFFu}) {
    FakeBulk bulk;
    std::string bad = good;
    std::memcpy(bad.data(), &length, sizeof length);
    bulk.folders["/r"] = {{1, good + bad + good, 3, 0}};
    EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 512u) << length;
  }
}

// An offset and a length of the name, of which one leads out of the record.
TEST(RVFileSizerBulk, passesOverAFolderWhoseNameIsNotInItsRecord) {
  using Place = std::pair<std::int32_t, std::uint32_t>;
  for (auto [offset, length] : {Place(-5, 7), Place(-2147483647, 7), Place(500, 7),
                                Place(2147483647, 7), Place(24, 500), Place(24, 0xFFFFFFFF)}) {
    FakeBulk bulk;
    LogRecorder log;
    std::string bad = packedEntry("folder", NS::VnodeDirectory, 0, 0);
    std::memcpy(bad.data() + 4, &offset, sizeof offset);
    std::memcpy(bad.data() + 8, &length, sizeof length);
    bulk.folders["/r"] = {{1, bad + packedEntry("a", NS::VnodeRegular, 1, 512), 2, 0}};
    EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 512u) << offset << " " << length;
    EXPECT_EQ(log.lines(), Strings{"Attribute getting error: Invalid argument"});
  }
}

TEST(RVFileSizerBulk, measuresAFolderThatGetsTheFirstDescriptor) {
  FakeBulk bulk;
  bulk.numbers = {3, 0};
  bulk.folders["/r"] = {{1, packedEntry("sub", NS::VnodeDirectory, 0, 0), 1, 0}};
  bulk.folders["/r/sub"] = {{1, packedEntry("inner", NS::VnodeRegular, 600, 512), 1, 0}};
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 1024u);
  EXPECT_EQ(bulk.open, 0);
}

TEST(RVFileSizerBulk, countsARecordWithoutANameAtTheVeryEndOfTheBuffer) {
  FakeBulk bulk;
  std::string bytes;
  for (int index = 0; index < 15; ++index)
    bytes += packedEntry(std::string(255, 'n'), NS::VnodeRegular, 1, 512);
  bytes += packedEntry(std::string(227, 'n'), NS::VnodeRegular, 1, 512);
  constexpr std::uint32_t smallest = 28;
  std::string nameless = packedEntry("", NS::VnodeRegular, 1, 512).substr(0, smallest);
  std::memcpy(nameless.data(), &smallest, sizeof smallest);
  bytes += nameless;
  ASSERT_EQ(bytes.size(), 4544u);
  bulk.folders["/r"] = {{1, bytes, 17, 0}};
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 17u * 512);
}

TEST(RVFileSizerBulk, countsNoMoreRecordsThanTheBufferHolds) {
  FakeBulk bulk;
  std::string bytes;
  while (bytes.size() < 4544)
    bytes += packedEntry(std::string(255, 'n'), NS::VnodeRegular, 1, 512);
  ASSERT_EQ(bytes.size(), 4544u) << "sixteen of the longest names fill it";
  bulk.folders["/r"] = {{1, bytes, 1000, 0}};
  EXPECT_EQ(sizer().alternativeItemSizeAtPath("/r"), 16u * 512);
}

} // namespace
