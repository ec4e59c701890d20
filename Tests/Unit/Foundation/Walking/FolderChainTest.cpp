// The chain of folders from a walk's root to its place.
#include "Foundation/Walking/POSIX/FolderChain.h"

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
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

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
  while (chain.depth() > 5)
    ASSERT_EQ(chain.leave().errnum(), 0);
  NS::StepOutcome outcome = chain.leave();
  EXPECT_EQ(outcome.step(), NS::TreeStep::GoUp);
  EXPECT_EQ(outcome.errnum(), ESTALE);
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
void makeWideFolder(const ScratchFolder &scratch, int items) {
  std::string deep;
  for (std::size_t level = 0; level < window + 2; ++level)
    deep += "/d";
  for (int index = 0; index < items; ++index) {
    std::string name = std::to_string(index);
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
  makeWideFolder(scratch, 10000);
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

// Through a folder and the chain of folders in it, so far that the walk closes
// the folder that it came from.
void goDownAndBack(FolderChain &chain, const std::string &name) {
  ASSERT_EQ(chain.enter(name.c_str()).errnum(), 0);
  while (chain.depth() < depth)
    ASSERT_EQ(chain.enter("d").errnum(), 0);
  while (chain.depth() > 1)
    ASSERT_EQ(chain.leave().errnum(), 0);
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
  EXPECT_FALSE(chain.findAgain([&](const std::string &path, const std::string &fate) {
    told.push_back(path);
    told.push_back(fate);
  }));
  EXPECT_EQ(told, (std::vector<std::string>{"", "cannot be reached: Too many open files"}));
  EXPECT_TRUE(chain.empty());
}

// A removed item is not listed again, and each folder comes once.
TEST(FolderChain, goesOnInALongListingAfterItWasClosed) {
  ScratchFolder scratch(kwtest::quickFolder());
  makeWideFolder(scratch, 10000);
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

// Tells whether a folder was listed since the last question.
class ListingWatch {
public:
  explicit ListingWatch(const std::string &folder)
      : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (::inotify_add_watch(watch_.get(), folder.c_str(), IN_ACCESS) < 0)
      ADD_FAILURE() << "no watch of " << folder;
  }

  bool wasListed() const {
    alignas(inotify_event) char events[16 * 1024];
    bool was = false;
    for (ssize_t size = 0; (size = ::read(watch_.get(), events, sizeof events)) > 0;)
      for (char *at = events; at < events + size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(at);
        was = was || event->len == 0; // the others are of folders in it
        at += sizeof *event + event->len;
      }
    return was;
  }

private:
  const NS::Descriptor watch_;
};

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
  ListingWatch watch(scratch.path());
  std::set<std::string> seen;
  int listings = 0;
  NS::StepOutcome outcome;
  while (const NS::FolderEntry *entry = chain.next(outcome)) {
    std::string name = entry->name;
    EXPECT_TRUE(seen.insert(name).second) << name;
    listings += watch.wasListed();
    goDownAndBack(chain, name);
  }
  EXPECT_TRUE(outcome.isDone());
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(folders));
  EXPECT_EQ(listings, 1);
}

} // namespace
