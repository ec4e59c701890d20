// The files and the empty folders of a tree, as its walk tells of them.
#include "CommandLine/TreeSearch.h"

#include "Support/FakeFTS.h"
#include "Support/ScratchFolder.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using NS::FTSInfo;
using Paths = std::vector<std::string>;

Paths pathsOf(const kw::TreeFindings &findings) {
  Paths paths;
  for (const kw::LargeItem &each : findings.items)
    paths.push_back(each.path);
  return paths;
}

Paths emptyFolders() {
  return pathsOf(kw::emptyFoldersIn("/root", {}, nullptr));
}

NS::FTSStat on(std::uint64_t device, std::int64_t blocks = 8) {
  NS::FTSStat status;
  status.device = device;
  status.blocks = blocks;
  return status;
}

// The walk does not enter a mount, so it looks empty.
TEST(EmptyFolders, haveNoOtherVolumeInThem) {
  kwtest::FakeFTS walks;
  auto &root = walks.add("/root", FTSInfo::D, walks.top, on(1));
  auto &empty = walks.add("/root/empty", FTSInfo::D, root, on(1));
  walks.again(empty, FTSInfo::DP);
  auto &mount = walks.add("/root/mount", FTSInfo::D, root, on(2));
  walks.again(mount, FTSInfo::DP);
  walks.again(root, FTSInfo::DP);
  EXPECT_EQ(emptyFolders(), Paths{"/root/empty"});
}

TEST(EmptyFolders, wereReadToTheirEnd) {
  for (FTSInfo end : {FTSInfo::DNR, FTSInfo::ERR, FTSInfo::DP}) {
    kwtest::FakeFTS walks;
    auto &root = walks.add("/root", FTSInfo::D, walks.top, on(1));
    auto &above = walks.add("/root/above", FTSInfo::D, root, on(1));
    auto &inner = walks.add("/root/above/inner", FTSInfo::D, above, on(1));
    walks.again(inner, end);
    walks.again(above, FTSInfo::DP);
    walks.again(root, FTSInfo::DP);
    EXPECT_EQ(emptyFolders(), end == FTSInfo::DP ? Paths{"/root/above"} : Paths{});
  }
}

TEST(EmptyFolders, countWithThoseBeneath) {
  kwtest::FakeFTS walks;
  auto &root = walks.add("/root", FTSInfo::D, walks.top, on(1));
  auto &above = walks.add("/root/above", FTSInfo::D, root, on(1, 16));
  auto &inner = walks.add("/root/above/inner", FTSInfo::D, above, on(1, 8));
  walks.again(inner, FTSInfo::DP);
  walks.again(above, FTSInfo::DP);
  walks.add("/root/file", FTSInfo::F, root, on(1));
  walks.again(root, FTSInfo::DP);
  auto found = kw::emptyFoldersIn("/root", {}, nullptr);
  ASSERT_EQ(pathsOf(found), Paths{"/root/above"});
  EXPECT_EQ(found.items[0].bytes, 24u * 512);
}

TEST(EmptyFolders, areToldAsFarAsTheWalkCame) {
  kwtest::FakeFTS walks;
  walks.failure = EMFILE;
  EXPECT_EQ(kw::emptyFoldersIn("/root", {}, nullptr).failure, EMFILE);
  walks.refuses = true;
  EXPECT_EQ(kw::emptyFoldersIn("/root", {}, nullptr).failure, ENOMEM);
}

class FilesIn : public testing::Test {
protected:
  Paths found(const kw::TreeQuery &query = {}) {
    Paths paths = pathsOf(kw::filesIn(scratch.path(), query, nullptr));
    for (std::string &path : paths)
      path.erase(0, scratch.path().size() + 1);
    return paths;
  }

  kwtest::ScratchFolder scratch;
};

TEST_F(FilesIn, countsAFileWithTwoNamesOnce) {
  scratch.file("a", "text");
  EXPECT_EQ(found().size(), 1u);
  fs::create_hard_link(scratch.path("a"), scratch.path("b"));
  EXPECT_EQ(found().size(), 1u);
  scratch.file("c", "text");
  EXPECT_EQ(found().size(), 2u);
}

TEST_F(FilesIn, findsNothingInAFolderThatIsLeftOut) {
  fs::create_directory(scratch.path("out"));
  scratch.file("out/inner", "text");
  scratch.file("other", "text");
  EXPECT_EQ(found({.excluded = {"out"}}), Paths{"other"});
  EXPECT_EQ(found({.excluded = {"other"}}), Paths{"out/inner"});
}

TEST_F(FilesIn, takesAFileThatWasLastChangedAtThatVerySecond) {
  scratch.file("a", "text");
  struct stat status {};
  ASSERT_EQ(::stat(scratch.path("a").c_str(), &status), 0);
  EXPECT_EQ(found({.unchangedSince = status.st_mtime}), Paths{"a"});
  EXPECT_EQ(found({.unchangedSince = status.st_mtime - 1}), Paths{});
}

TEST_F(FilesIn, isStoppedByItsWatch) {
  for (int number = 0; number < 600; ++number) // more than pass between two looks at the watch
    scratch.file(std::to_string(number), "");
  auto stopped = kw::filesIn(scratch.path(), {}, [](const kw::RequestProgress &) { return false; });
  EXPECT_EQ(stopped.failure, ECANCELED);
  EXPECT_LT(stopped.items.size(), 600u);
  auto whole = kw::filesIn(scratch.path(), {}, [](const kw::RequestProgress &) { return true; });
  EXPECT_EQ(whole.failure, 0);
  EXPECT_EQ(whole.items.size(), 600u);
}

} // namespace
