// The chain of folders from a walk's root to its place.
#include "Foundation/Walking/POSIX/FolderChain.h"

#include "Support/Allocations.h"
#include "Support/AnotherVolume.h"
#include "Support/FolderWatch.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::FolderChain;

constexpr std::size_t window = NS::ChainRules().window;
constexpr std::size_t depth = window + 4;

// By a descriptor: a root that is looked up in another volume's folder is a
// mount point to the chain.
int enterRoot(FolderChain &chain, const std::string &path) {
  return chain.openRoot(NS::Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)))
      .errnum();
}

// Makes "root/d/d/d..." and goes down to its end.
void descend(const ScratchFolder &scratch, FolderChain &chain) {
  std::string path = scratch.path("root");
  for (std::size_t level = 1; level < depth; ++level)
    path += "/d";
  fs::create_directories(path);
  ASSERT_EQ(enterRoot(chain, scratch.path("root")), 0);
  while (chain.depth() < depth)
    ASSERT_EQ(chain.enter("d").errnum(), 0);
}

// Leaves folders until the chain has so many.
void goUpTo(FolderChain &chain, std::size_t folders) {
  while (chain.depth() > folders)
    ASSERT_EQ(chain.leave().errnum(), 0);
}

// Adds the path and the fate of each folder that the chain gives up.
FolderChain::LossHandler tellingInto(std::vector<std::string> &told) {
  return [&told](const std::string &path, const std::string &fate) {
    told.push_back(path);
    told.push_back(fate);
  };
}

// Adds the folder at the path without opening it.
void add(FolderChain &chain, const std::string &path, const char *name) {
  NS::FTSStat status;
  ASSERT_EQ(NS::foldercalls::readStatus(AT_FDCWD, path.c_str(), status), 0);
  chain.add(name, NS::idOf(status));
}

// The names that the present folder still gives, each once.
std::set<std::string> namesIn(FolderChain &chain) {
  std::set<std::string> names;
  NS::StepOutcome outcome;
  while (const NS::FolderEntry *entry = chain.next(outcome))
    EXPECT_TRUE(names.insert(entry->name).second) << entry->name;
  EXPECT_EQ(outcome.errnum(), 0);
  return names;
}

TEST(FolderChain, keepsOnlyAFewFoldersOpenAndFindsItsWayBack) {
  ScratchFolder scratch;
  std::size_t before = kwtest::openDescriptorCount();
  FolderChain chain({.mountPoints = NS::MountPoints::Refuse});
  descend(scratch, chain);
  EXPECT_EQ(kwtest::openDescriptorCount(), before + window);
  EXPECT_EQ(chain.pathBelowRoot().size(), 2 * (depth - 1) - 1);
  while (!chain.empty())
    ASSERT_EQ(chain.leave().errnum(), 0);
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(FolderChain, doesNotLeaveThroughAFolderThatWasMovedElsewhere) {
  ScratchFolder scratch;
  FolderChain chain({.mountPoints = NS::MountPoints::Refuse});
  descend(scratch, chain);
  // The fifth folder is the uppermost that is open; the one above it is found
  // through it.
  fs::create_directory(scratch.path("outside"));
  fs::rename(scratch.path("root/d/d/d/d"), scratch.path("outside/d"));
  goUpTo(chain, 5);
  NS::StepOutcome outcome = chain.leave();
  EXPECT_EQ(outcome.step(), NS::TreeStep::GoUp);
  EXPECT_EQ(outcome.errnum(), ESTALE);
}

TEST(FolderChain, givesThePathsOfItsFoldersAndTheirItems) {
  ScratchFolder scratch;
  FolderChain chain({});
  descend(scratch, chain);
  goUpTo(chain, 3);
  EXPECT_EQ(chain.pathOf("/root", "item"), "/root/d/d/item");
  EXPECT_EQ(chain.pathOf("/root", ""), "/root/d/d");
  goUpTo(chain, 1);
  EXPECT_EQ(chain.pathOf("/root", "item"), "/root/item");
  EXPECT_EQ(chain.pathOf("/root", ""), "/root");
}

TEST(FolderChain, keepsAsManyFoldersOpenAfterItWentUpAndDown) {
  ScratchFolder scratch(kwtest::quickFolder());
  std::size_t before = kwtest::openDescriptorCount();
  FolderChain chain({.keepsRoot = true});
  for (int round = 0; round < 3; ++round) {
    descend(scratch, chain);
    goUpTo(chain, 1);
    for (std::size_t visit = 0; visit < window; ++visit) {
      ASSERT_EQ(chain.enter("d").errnum(), 0);
      ASSERT_EQ(chain.enter("d").errnum(), 0);
      chain.drop();
      ASSERT_EQ(chain.leave().errnum(), 0);
      ASSERT_EQ(chain.enter("d").errnum(), 0);
      chain.drop();
    }
    while (chain.depth() < depth)
      ASSERT_EQ(chain.enter("d").errnum(), 0);
    EXPECT_EQ(kwtest::openDescriptorCount(), before + window + 1) << "with the root";
    if (round == 0)
      chain.clear();
    while (!chain.empty())
      ASSERT_EQ(chain.leave().errnum(), 0);
    EXPECT_EQ(kwtest::openDescriptorCount(), before);
  }
}

TEST(FolderChain, takesNoMemoryForFoldersThatItLeft) {
  ScratchFolder scratch(kwtest::quickFolder());
  const std::string name(200, 'd');
  fs::create_directory(scratch.path(name));
  FolderChain chain({});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  kwtest::AllocationsBelow scarcity(100 * name.size());
  for (int visit = 0; visit < 1000; ++visit) {
    ASSERT_EQ(chain.enter(name.c_str()).errnum(), 0);
    ASSERT_EQ(chain.leave().errnum(), 0);
  }
}

// Closes the uppermost instead. The folder that the chain is in, and the one above
// it, are still needed.
TEST(FolderChain, goesOnWithoutAnyDescriptorToSpare) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch(kwtest::quickFolder());
  fs::create_directories(scratch.path("root/d/d/d"));
  FolderChain chain({});
  ASSERT_EQ(enterRoot(chain, scratch.path("root")), 0);
  ASSERT_EQ(chain.enter("d").errnum(), 0);
  ASSERT_EQ(chain.enter("d").errnum(), 0);
  kwtest::SleepWatcher sleeps;
  kwtest::FewDescriptorsLeft scarcity;
  EXPECT_EQ(chain.enter("d").errnum(), 0);
  EXPECT_EQ(namesIn(chain), std::set<std::string>());
  EXPECT_EQ(sleeps.sleeps, 0);
}

TEST(FolderChain, opensAFolderAtASecondTryAfterDescriptorsRanOut) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/d"));
  FolderChain chain({});
  ASSERT_EQ(enterRoot(chain, scratch.path("root")), 0);
  add(chain, scratch.path("root/d"), "d");
  kwtest::SleepWatcher sleeps;
  {
    kwtest::FewDescriptorsLeft scarcity;
    EXPECT_EQ(chain.open().errnum(), EMFILE);
  }
  EXPECT_EQ(chain.open().errnum(), 0);
  EXPECT_TRUE(chain.isOpen());
}

// A folder in the place of one that was moved is another.
TEST(FolderChain, reopensFoldersAboveOneThatWasMoved) {
  ScratchFolder scratch;
  const std::string root = scratch.path("root");
  fs::create_directories(root + "/a/b/moved/d");
  fs::create_directories(root + "/a/b/other/d");
  FolderChain chain({.keepsRoot = true});
  add(chain, root, root.c_str());
  ASSERT_EQ(chain.open().errnum(), 0);
  add(chain, root + "/a", "a");
  add(chain, root + "/a/b", "b");
  add(chain, root + "/a/b/moved", "moved");
  add(chain, root + "/a/b/moved/d", "d");
  fs::rename(root + "/a/b/moved", scratch.path("moved"));
  fs::create_directories(root + "/a/b/moved/d");
  for (int lost = 0; lost < 2; ++lost) {
    EXPECT_EQ(chain.reopen().errnum(), ENOENT);
    chain.drop();
  }
  EXPECT_EQ(chain.reopen().errnum(), 0);
  EXPECT_EQ(namesIn(chain), (std::set<std::string>{"moved", "other"}));
  add(chain, root + "/a/b/other", "other");
  EXPECT_EQ(chain.reopen().errnum(), 0);
  EXPECT_EQ(namesIn(chain), std::set<std::string>{"d"});
}

TEST(FolderChain, opensAFolderBelowOnesThatWereOnlyAdded) {
  ScratchFolder scratch;
  const std::string root = scratch.path("root");
  fs::create_directories(root + "/a/b/c/d");
  FolderChain chain({.keepsRoot = true});
  add(chain, root, root.c_str());
  ASSERT_EQ(chain.open().errnum(), 0);
  add(chain, root + "/a", "a");
  add(chain, root + "/a/b", "b");
  EXPECT_EQ(chain.open().errnum(), 0);
  EXPECT_EQ(namesIn(chain), std::set<std::string>{"c"});
}

TEST(FolderChain, tellsAFolderThoughTheVolumeDoesNot) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  fs::create_directory_symlink("folder", scratch.path("link"));
  scratch.file("file", "");
  FolderChain chain({.mountPoints = NS::MountPoints::Refuse});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  EXPECT_TRUE(chain.isFolder({.name = "folder", .type = DT_UNKNOWN}));
  for (const char *name : {"link", "file", "missing"})
    EXPECT_FALSE(chain.isFolder({.name = name, .type = DT_UNKNOWN})) << name;
}

TEST(FolderChain, entersNoLinkAndNoFile) {
  ScratchFolder scratch;
  fs::create_directory_symlink(".", scratch.path("link"));
  scratch.file("file", "");
  FolderChain chain({.mountPoints = NS::MountPoints::Refuse});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  int error = chain.enter("link").errnum();
  EXPECT_TRUE(error == ELOOP || error == ENOTDIR) << error;
  EXPECT_EQ(chain.enter("file").errnum(), ENOTDIR);
  EXPECT_TRUE(chain.enter("missing").isMissing());
  EXPECT_EQ(chain.depth(), 1u);
}

// More entries than are read at once, some of them folders with a chain of
// folders in it.
void makeWideFolder(const ScratchFolder &scratch, const std::string &path, int items) {
  std::string deep;
  for (std::size_t level = 0; level < window + 2; ++level)
    deep += "/d";
  for (int index = 0; index < items; ++index) {
    std::string name = path + std::to_string(index);
    if (index % 1000 == 0)
      fs::create_directories(scratch.path(name) + deep);
    else
      scratch.file(name, "");
  }
}

// Lists the present folder: each item once, the files first and by inode.
void expectByInode(FolderChain &chain, std::size_t items) {
  std::set<std::string> seen;
  std::uint64_t last = 0;
  bool foldersBegan = false;
  NS::StepOutcome outcome;
  while (const NS::FolderEntry *entry = chain.next(outcome)) {
    EXPECT_TRUE(seen.insert(entry->name).second) << entry->name;
    bool isFolder = entry->type == DT_DIR;
    EXPECT_TRUE(isFolder || !foldersBegan) << entry->name;
    EXPECT_TRUE(isFolder || entry->inode > last) << entry->name;
    last = entry->inode;
    foldersBegan = foldersBegan || isFolder;
  }
  EXPECT_TRUE(outcome.isDone());
  EXPECT_EQ(seen.size(), items);
}

TEST(FolderChain, givesLongListingsByInodeFilesFirst) {
  ScratchFolder scratch(kwtest::quickFolder());
  makeWideFolder(scratch, "", 10000);
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  expectByInode(chain, 10000);
}

// All names, also "." and "..", have records of the same length, so that the end
// of the second listing is where a record of the first one begins.
TEST(FolderChain, givesNothingOfAFormerLongListing) {
  ScratchFolder scratch(kwtest::quickFolder());
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  for (const auto &[folder, items] : {std::pair("long", 8999), {"shorter", 5999}}) {
    fs::create_directory(scratch.path(folder));
    for (int index = 0; index < items; ++index)
      scratch.file(std::string(folder) + "/" + std::to_string(1000 + index), "");
    ASSERT_TRUE(chain.enter(folder).isDone());
    int listed = 0;
    NS::StepOutcome outcome;
    while (chain.next(outcome))
      ++listed;
    EXPECT_EQ(listed, items) << folder;
    ASSERT_TRUE(chain.leave().isDone());
  }
}

// A walk may leave a folder before its end.
TEST(FolderChain, givesNothingOfALongListingThatItLeft) {
  ScratchFolder scratch(kwtest::quickFolder());
  fs::create_directory(scratch.path("long"));
  makeWideFolder(scratch, "long/", 5000);
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  NS::StepOutcome outcome;
  for (int visit = 0; visit < 2; ++visit) {
    ASSERT_TRUE(chain.enter("long").isDone());
    ASSERT_NE(chain.next(outcome), nullptr);
    ASSERT_TRUE(chain.leave().isDone());
  }
  ASSERT_TRUE(chain.enter("long").isDone());
  expectByInode(chain, 5000);
}

TEST(FolderChain, givesEachEntryOnceOfAFolderTooLongForOneListing) {
  constexpr std::size_t items = 18000;
  ScratchFolder scratch(kwtest::quickFolder());
  const std::string filler(240, 'x');
  for (std::size_t index = 0; index < items; ++index)
    scratch.file(filler + std::to_string(index), "");
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  EXPECT_EQ(namesIn(chain).size(), items);
}

class FolderChainOrder : public testing::TestWithParam<NS::EntryOrder> {};

TEST_P(FolderChainOrder, listsAgainFromAnEarlierPosition) {
  ScratchFolder scratch(kwtest::quickFolder());
  makeWideFolder(scratch, "", 5000);
  FolderChain chain({.order = GetParam()});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  NS::StepOutcome outcome;
  ASSERT_NE(chain.next(outcome), nullptr);
  chain.goOnFrom(0);
  EXPECT_EQ(namesIn(chain).size(), 5000u);
}

TEST_P(FolderChainOrder, givesNoEntryOfAListingThatWasEnded) {
  ScratchFolder scratch(kwtest::quickFolder());
  makeWideFolder(scratch, "", 5000);
  FolderChain chain({.order = GetParam()});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  NS::StepOutcome outcome;
  ASSERT_NE(chain.next(outcome), nullptr);
  chain.endListing();
  EXPECT_EQ(namesIn(chain), std::set<std::string>());
}

INSTANTIATE_TEST_SUITE_P(, FolderChainOrder,
                         testing::Values(NS::EntryOrder::AsListed, NS::EntryOrder::ByInode));

TEST(FolderChain, givesNothingInAFolderThatWasRemoved) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("d"));
  FolderChain chain({});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  ASSERT_EQ(chain.enter("d").errnum(), 0);
  fs::remove(scratch.path("d"));
  EXPECT_EQ(namesIn(chain), std::set<std::string>());
}

// A folder entered in itself takes the place of a deep tree.
TEST(FolderChain, boundsTheMemoryOfLargeFoldersInOneAnother) {
  constexpr std::size_t memory = 10 * 1024 * 1024, entries = 300;
  ScratchFolder scratch(kwtest::quickFolder());
  for (std::size_t index = 0; index < entries; ++index)
    scratch.file(std::string(200, 'x') + std::to_string(index), "");
  FolderChain chain({.keepsRoot = true});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  kwtest::AllocationsBelow scarcity(memory);
  std::vector<std::string> first;
  NS::StepOutcome outcome;
  for (int level = 0; level < 2000; ++level) {
    const NS::FolderEntry *entry = chain.next(outcome);
    ASSERT_NE(entry, nullptr);
    first.push_back(entry->name);
    ASSERT_EQ(chain.enter(".").errnum(), 0);
  }
  for (std::size_t level : {100u, 10u}) {
    while (chain.depth() > level)
      chain.drop();
    ASSERT_EQ(chain.reopen().errnum(), 0);
    std::set<std::string> others = namesIn(chain);
    EXPECT_EQ(others.size(), entries - 1);
    EXPECT_FALSE(others.contains(first[level - 1]));
  }
}

// Through a folder and the chain of folders in it, so far that the walk closes
// the folder that it came from.
void goDownAndBack(FolderChain &chain, const std::string &name) {
  ASSERT_EQ(chain.enter(name.c_str()).errnum(), 0);
  while (chain.depth() < depth)
    ASSERT_EQ(chain.enter("d").errnum(), 0);
  goUpTo(chain, 1);
}

TEST(FolderChain, listsAFolderFromItsStartAfterItWasClosedUnread) {
  ScratchFolder scratch;
  FolderChain chain({});
  descend(scratch, chain);
  goUpTo(chain, 1);
  EXPECT_EQ(namesIn(chain), std::set<std::string>{"d"});
}

// The folder above it is closed by then, and is found by the names.
TEST(FolderChain, goesOnAboveAFolderThatWasMoved) {
  ScratchFolder scratch;
  FolderChain chain({.keepsRoot = true});
  descend(scratch, chain);
  scratch.file("root/d/d/d/file", "");
  fs::rename(scratch.path("root/d/d/d/d"), scratch.path("moved"));
  goUpTo(chain, 5);
  ASSERT_EQ(chain.leave().errnum(), ESTALE);
  EXPECT_TRUE(chain.findAgain([](const std::string &path, const std::string & /*fate*/) {
    ADD_FAILURE() << "lost " << path;
  }));
  EXPECT_EQ(chain.pathBelowRoot(), "d/d/d");
  EXPECT_EQ(namesIn(chain), std::set<std::string>{"file"});
}

TEST(FolderChain, tellsOnceOfAFolderThatWasMovedWithOthersInIt) {
  ScratchFolder scratch;
  FolderChain chain({.keepsRoot = true});
  descend(scratch, chain);
  scratch.file("root/d/file", "");
  fs::rename(scratch.path("root/d/d/d/d"), scratch.path("inner"));
  fs::rename(scratch.path("root/d/d"), scratch.path("outer"));
  goUpTo(chain, 5);
  ASSERT_EQ(chain.leave().errnum(), ESTALE);
  std::vector<std::string> told;
  EXPECT_TRUE(chain.findAgain(tellingInto(told)));
  EXPECT_EQ(told, (std::vector<std::string>{"d/d", "was moved"}));
  EXPECT_EQ(chain.pathBelowRoot(), "d");
  EXPECT_EQ(namesIn(chain), std::set<std::string>{"file"});
}

// Each moved folder is told of by its path, so the root by an empty one.
TEST(FolderChain, tellsOfTheRootWhenEvenThatCannotBeOpenedAgain) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/d"));
  FolderChain chain({.keepsRoot = true});
  ASSERT_EQ(enterRoot(chain, scratch.path("root")), 0);
  ASSERT_EQ(chain.enter("d").errnum(), 0);
  kwtest::SleepWatcher sleeps;
  kwtest::FewDescriptorsLeft scarcity;
  std::vector<std::string> told;
  EXPECT_FALSE(chain.findAgain(tellingInto(told)));
  EXPECT_EQ(told, (std::vector<std::string>{"", "cannot be reached: Too many open files"}));
  EXPECT_TRUE(chain.empty());
}

// A removed item is not listed again, and each folder comes once.
TEST(FolderChain, goesOnInALongListingAfterItWasClosed) {
  ScratchFolder scratch(kwtest::quickFolder());
  makeWideFolder(scratch, "", 10000);
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  std::set<std::string> folders;
  NS::StepOutcome outcome;
  std::size_t files = 0;
  while (const NS::FolderEntry *entry = chain.next(outcome)) {
    if (entry->type != DT_DIR) {
      ASSERT_EQ(::unlinkat(chain.folder(), entry->name, 0), 0) << entry->name;
      ++files;
      continue;
    }
    std::string name = entry->name;
    EXPECT_TRUE(folders.insert(name).second) << name;
    goDownAndBack(chain, name);
  }
  EXPECT_TRUE(outcome.isDone());
  EXPECT_EQ(files, 9990u);
  EXPECT_EQ(folders.size(), 10u);
}

// More folders than are read at once, each so deep that the walk closes the one
// that holds them. To list that again after each would take the square of their
// number.
TEST(FolderChain, keepsALongListingWhileItsFolderIsClosed) {
  constexpr int folders = 3000;
  ScratchFolder scratch(kwtest::quickFolder());
  std::string deep;
  for (std::size_t level = 1; level < depth; ++level)
    deep += "/d";
  for (int index = 0; index < folders; ++index)
    fs::create_directories(scratch.path(std::to_string(index)) + deep);
  FolderChain chain({.order = NS::EntryOrder::ByInode});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  kwtest::FolderWatch watch(scratch.path(), IN_ACCESS);
  std::set<std::string> seen;
  int listings = 0;
  NS::StepOutcome outcome;
  while (const NS::FolderEntry *entry = chain.next(outcome)) {
    std::string name = entry->name;
    EXPECT_TRUE(seen.insert(name).second) << name;
    listings += watch.count() > 0;
    goDownAndBack(chain, name);
  }
  EXPECT_TRUE(outcome.isDone());
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(folders));
  EXPECT_EQ(listings, 1);
}

TEST(FolderChainMounts, areEnteredUnlessTheWalkRefusesThem) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  auto body = [&]() -> std::string {
    for (NS::MountPoints mounts :
         {NS::MountPoints::Refuse, NS::MountPoints::Enter, NS::MountPoints::Ignore}) {
      FolderChain chain({.mountPoints = mounts});
      if (enterRoot(chain, scratch.path()) != 0)
        return "no root";
      int refused = mounts == NS::MountPoints::Refuse ? EBUSY : 0;
      if (int error = chain.enter("other").errnum(); error != refused)
        return "error " + std::to_string(error);
    }
    return "";
  };
  EXPECT_EQ(kwtest::besideAnotherVolume(scratch, body), "");
}

// On a volume of a network each listing takes a while.
TEST(FolderChain, listsAFolderOnceThoughTheWalkGoesDownFromIt) {
  ScratchFolder scratch(kwtest::quickFolder());
  for (const char *name : {"a", "b", "c"})
    fs::create_directory(scratch.path(name));
  FolderChain chain({});
  ASSERT_EQ(enterRoot(chain, scratch.path()), 0);
  kwtest::FolderWatch watch(scratch.path(), IN_ACCESS);
  int listings = 0;
  NS::StepOutcome outcome;
  while (const NS::FolderEntry *entry = chain.next(outcome)) {
    listings += watch.count() > 0;
    ASSERT_EQ(chain.enter(entry->name).errnum(), 0);
    ASSERT_EQ(chain.leave().errnum(), 0);
  }
  EXPECT_EQ(listings, 1);
}

} // namespace
