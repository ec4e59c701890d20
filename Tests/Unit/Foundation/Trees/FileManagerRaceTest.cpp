// Folders exchanged for links to a folder outside while trees are removed,
// shredded, unlocked and copied: everything outside must stay unchanged.
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/SecureRemoval.h"
#include "Support/Attacker.h"
#include "Support/LockedItem.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <iterator>
#include <thread>

namespace {

namespace fs = std::filesystem;
using kwtest::Attacker;
using kwtest::HeldLock;
using kwtest::LockedItem;
using kwtest::ScratchFolder;

// Several folders, so that in any order of the volume the walk meets some
// before their link and some after it.
constexpr const char *folders[] = {"", "/sub", "/sub2", "/sub3", "/sub4", "/sub/subsub"};
constexpr const char *swapped[] = {"sub", "sub2", "sub3", "sub4"};
constexpr std::size_t filesOfATree = std::size(folders) * 8;

// Some files in each of some nested folders.
void makeFiles(const ScratchFolder &scratch, const std::string &root, const char *content) {
  for (const char *folder : folders) {
    fs::create_directories(scratch.path(root + folder));
    for (int number = 0; number < 8; ++number)
      scratch.file(root + folder + "/file" + std::to_string(number), content);
  }
}

// Tells whether the folder outside still holds exactly its first contents.
std::string damage(const ScratchFolder &scratch) {
  std::size_t items = 0;
  for (const auto &entry : fs::recursive_directory_iterator(scratch.path("outside")))
    items += entry.is_regular_file() ? 1u : 0u;
  if (items != filesOfATree)
    return std::to_string(items) + " files are left outside";
  for (const char *folder : folders)
    for (int number = 0; number < 8; ++number)
      if (std::string name = std::string("outside") + folder + "/file" + std::to_string(number);
          scratch.content(name) != "kept")
        return name + " was changed";
  return "";
}

std::string linkBeside(const std::string &root, const char *folder) {
  return root + "/link-" + folder;
}

void makeLinks(const ScratchFolder &scratch, const std::string &root) {
  for (const char *folder : swapped)
    fs::create_directory_symlink("../outside", scratch.path(linkBeside(root, folder)));
}

std::vector<Attacker::Pair> pairsIn(const ScratchFolder &scratch) {
  std::vector<Attacker::Pair> pairs;
  for (const char *folder : swapped)
    pairs.emplace_back(scratch.path(std::string("root/") + folder),
                       scratch.path(linkBeside("root", folder)));
  return pairs;
}

// Works on "root" again and again, a new one each time, while its folders are
// exchanged for links that lead outside.
unsigned long attack(const ScratchFolder &scratch,
                     const std::function<void(const std::string &root)> &work) {
  makeFiles(scratch, "outside", "kept");
  Attacker attacker(pairsIn(scratch));
  auto end = std::chrono::steady_clock::now() + kwtest::raceDuration();
  for (int turn = 0; std::chrono::steady_clock::now() < end; ++turn) {
    // Out of the attacker's reach until it is complete.
    makeFiles(scratch, "fresh", "victim");
    makeLinks(scratch, "fresh");
    fs::rename(scratch.path("fresh"), scratch.path("root"));
    work(scratch.path("root"));
    std::error_code gone;
    fs::rename(scratch.path("root"), scratch.path("left" + std::to_string(turn)), gone);
  }
  return attacker.exchanges();
}

TEST(SwapRace, cannotLeadARemovalOutside) {
  ScratchFolder scratch;
  unsigned long removals = 0;
  unsigned long exchanges = attack(scratch, [&](const std::string &root) {
    removals += NS::FileManager::defaultManager().removeItemAtPath(root, nullptr) ? 1u : 0u;
  });
  EXPECT_GT(exchanges, 0u);
  EXPECT_GT(removals, 0u);
  EXPECT_EQ(damage(scratch), "");
}

TEST(SwapRace, cannotLeadASecureRemovalOutside) {
  ScratchFolder scratch;
  unsigned long removals = 0;
  unsigned long exchanges = attack(scratch, [&](const std::string &root) {
    removals += NS::SecureRemoval::shared().removefile(root, 17) == 0 ? 1u : 0u;
  });
  EXPECT_GT(exchanges, 0u);
  EXPECT_GT(removals, 0u);
  EXPECT_EQ(damage(scratch), "");
}

TEST(SwapRace, cannotLeadUnlockingOutside) {
  ScratchFolder scratch;
  makeFiles(scratch, "outside", "kept");
  LockedItem upper(scratch.path("outside/file0")), lower(scratch.path("outside/sub/file0"));
  KW_REQUIRE_LOCKED(upper);
  makeFiles(scratch, "root", "victim");
  makeLinks(scratch, "root");
  std::deque<HeldLock> bait;
  for (const char *folder : folders)
    bait.emplace_back(scratch.path(std::string("root") + folder + "/file0"));
  Attacker attacker(pairsIn(scratch));
  auto end = std::chrono::steady_clock::now() + kwtest::raceDuration();
  while (std::chrono::steady_clock::now() < end) {
    // There must be something to unlock again.
    for (const HeldLock &lock : bait)
      ASSERT_TRUE(lock.lock());
    NS::FileFlags::shared().clearBeneath(scratch.path("root"), NS::SF_IMMUTABLE_FLAG,
                                         [](const std::string &, int) {});
  }
  EXPECT_GT(attacker.exchanges(), 0u);
  for (const char *name : {"outside/file0", "outside/sub/file0"})
    EXPECT_NE(kwtest::inodeFlags(scratch.path(name)) & FS_IMMUTABLE_FL, 0) << name;
}

TEST(SwapRace, cannotBringItemsFromOutsideIntoACopy) {
  ScratchFolder scratch;
  unsigned long copies = 0;
  attack(scratch, [&](const std::string &root) {
    NS::FileManager &manager = NS::FileManager::defaultManager();
    if (!manager.copyItemAtPath(root, scratch.path("copy"), nullptr))
      return;
    ++copies;
    for (const auto &entry : fs::recursive_directory_iterator(scratch.path("copy")))
      if (entry.symlink_status().type() == fs::file_type::regular) {
        EXPECT_EQ(scratch.content(fs::relative(entry.path(), scratch.path()).string()), "victim");
      }
    EXPECT_TRUE(manager.removeItemAtPath(scratch.path("copy"), nullptr));
  });
  EXPECT_GT(copies, 0u);
}

TEST(TwoRemovals, ofOneTreeBothSucceed) {
  NS::FileManager &manager = NS::FileManager::defaultManager();
  for (int turn = 0; turn < 50; ++turn) {
    ScratchFolder scratch;
    makeFiles(scratch, "root", "content");
    auto remove = [&] {
      std::optional<NS::Error> error;
      bool removed = manager.removeItemAtPath(scratch.path("root"), &error);
      EXPECT_TRUE(removed || error->code() == NS::FileNoSuchFileError) << error->description();
    };
    std::thread other(remove);
    remove();
    other.join();
    EXPECT_TRUE(fs::is_empty(scratch.path()));
  }
}

} // namespace
