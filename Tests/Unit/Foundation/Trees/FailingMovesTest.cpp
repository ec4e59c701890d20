// Moves in which a call fails, or others change something at a certain moment.
#include "Foundation/Trees/FileManager.h"

#include "Foundation/Base/Progress.h"
#include "Support/AnotherVolume.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/MoveCode.h"
#include "Support/PrivateMounts.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/SteppedMove.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kwtest::besideAnotherVolume;
using kwtest::LockedItem;
using kwtest::moveCode;
using kwtest::ScratchFolder;

TEST(MoveItem, countsARenameAsOneItemWithoutBytes) {
  ScratchFolder scratch;
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  EXPECT_EQ(moveCode(scratch.file("a", "content"), scratch.path("b")), 0);
  EXPECT_EQ(progress.snapshot().items, 1u);
  EXPECT_EQ(progress.snapshot().bytes, 0u);
}

// Tries moves where a rename replaces any item, as on a volume of a network.
void moveWhereRenamesReplace(bool hasHardLinks) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  fs::create_directory(scratch.path("taken folder"));
  scratch.file("file", "file");
  scratch.file("folder/inner", "inner");
  scratch.file("taken", "taken");
  scratch.file("taken folder/inner", "taken");
  auto path = [&](const char *name) { return scratch.path(name); };
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseExclusiveRenames() ||
                  (!hasHardLinks && !kwtest::refuseCalls(SYS_linkat, EPERM)))
                return "the calls cannot be taken away";
              for (const char *from : {"file", "folder"})
                for (const char *to : {"taken", "taken folder"})
                  if (moveCode(path(from), path(to)) != NS::FileWriteFileExistsError)
                    return std::string(from) + " to " + to;
              if (moveCode(path("file"), path("new file")) != 0)
                return "no file is moved";
              if (moveCode(path("folder"), path("new folder")) != 0)
                return "no folder is moved";
              return "";
            }),
            "");
  EXPECT_EQ(scratch.content("new file"), "file");
  EXPECT_EQ(scratch.content("new folder/inner"), "inner");
  EXPECT_EQ(scratch.content("taken"), "taken");
  EXPECT_EQ(scratch.content("taken folder/inner"), "taken");
  EXPECT_FALSE(fs::exists(path("file")) || fs::exists(path("folder")));
}

TEST(MoveItem, replacesNothingWhereRenamesAlwaysReplace) {
  moveWhereRenamesReplace(true);
}

TEST(MoveItem, replacesNothingWhereThereAreNoHardLinksEither) {
  moveWhereRenamesReplace(false);
}

TEST(MoveItem, leavesNothingInTheNewPlaceOfALockedItem) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  LockedItem folder(scratch.path("folder")), file(scratch.file("file", "kept"));
  KW_REQUIRE_LOCKED(folder);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseExclusiveRenames())
                return "the call cannot be taken away";
              for (const char *name : {"folder", "file"})
                if (moveCode(scratch.path(name), scratch.path("new")) !=
                    NS::FileWriteNoPermissionError)
                  return std::string(name) + ": another error";
              return "";
            }),
            "");
  EXPECT_FALSE(fs::exists(scratch.path("new")));
  EXPECT_EQ(scratch.content("file"), "kept");
}

TEST(MoveAcross, movesALinkAndAPipeThemselves) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_symlink("missing", scratch.path("link"));
  ASSERT_EQ(::mkfifo(scratch.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  for (const char *name : {"link", "pipe"})
                                    if (moveCode(scratch.path(name),
                                                 scratch.path(std::string("other/") + name)) != 0)
                                      return name;
                                  return fs::read_symlink(scratch.path("other/link")) ==
                                                     "missing" &&
                                                 fs::is_fifo(scratch.path("other/pipe"))
                                             ? ""
                                             : "other items";
                                }),
            "");
}

// Removes the file during a look at it, which then sees it without a name.
bool seeVanishing(const std::string &name, const kwtest::CallArguments &look) {
  int folder = static_cast<int>(look[0]);
  NS::Descriptor file(::openat(folder, name.c_str(), O_PATH | O_CLOEXEC));
  return file && ::unlinkat(folder, name.c_str(), 0) == 0 &&
         ::statx(file.get(), "", AT_EMPTY_PATH, static_cast<unsigned>(look[3]),
                 reinterpret_cast<struct statx *>(look[4])) == 0;
}

TEST(MoveAcross, countsAFileAsMovedThatVanishesDuringALookAtIt) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  fs::create_directory(scratch.path("tree"));
                  for (const char *name : {"first", "second"})
                    scratch.file(std::string("tree/") + name, name);
                  kwtest::SteppedMove move(scratch);
                  if (move->copy())
                    return "not copied";
                  std::string vanishing = "first";
                  auto look = [&](const kwtest::CallArguments &call) {
                    return call.text(1) == vanishing && seeVanishing(vanishing, call);
                  };
                  if (!kwtest::inPlaceOfCalls({SYS_statx}, look))
                    return "the looks cannot be watched";
                  if (move->place())
                    return "not placed";
                  vanishing = "second";
                  if (move->removeOriginal())
                    return "not removed";
                  return fs::exists(scratch.path("tree")) ? "the source is still there" : "";
                }),
            "");
}

// A look can see a part of the removal: the time of change, and not yet the name.
TEST(MoveAcross, countsAFileAsMovedThatChangesBeforeItVanishes) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  fs::create_directory(scratch.path("tree"));
                                  std::string file = scratch.file("tree/file", "content");
                                  kwtest::SteppedMove move(scratch);
                                  if (move->copy())
                                    return "not copied";
                                  int looks = 0;
                                  auto look = [&](const kwtest::CallArguments &call) {
                                    if (call.text(1) != "file")
                                      return;
                                    if (++looks == 1)
                                      fs::permissions(file, fs::perms::owner_read);
                                    if (looks == 3)
                                      fs::remove(file);
                                  };
                                  if (!kwtest::beforeCalls(SYS_statx, look))
                                    return "the looks cannot be watched";
                                  if (move->place())
                                    return "not placed";
                                  if (move->removeOriginal())
                                    return "not removed";
                                  return fs::exists(scratch.path("tree"))
                                             ? "the source is still there"
                                             : "";
                                }),
            "");
}

TEST(MoveAcross, placesACopyWithTheNamesOfTheOriginalAlone) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  fs::create_directory(scratch.path("tree"));
                                  fs::create_hard_link(scratch.file("tree/first", "content"),
                                                       scratch.path("tree/second"));
                                  kwtest::SteppedMove move(scratch);
                                  if (move->copy() || move->place())
                                    return "not placed";
                                  auto names =
                                      fs::hard_link_count(scratch.path("other/tree/first"));
                                  return names == 2 ? "" : std::to_string(names) + " names";
                                }),
            "");
}

TEST(MoveAcross, keepsTheSourceWhenItsCopyDoesNotReachTheDisk) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  scratch.file("tree/inner", "inner");
  scratch.file("file", "file");
  for (auto [name, call] : {std::pair("file", SYS_fsync), std::pair("tree", SYS_syncfs)})
    EXPECT_EQ(
        besideAnotherVolume(scratch,
                            [&, name = name, call = call]() -> std::string {
                              if (!kwtest::refuseCalls(static_cast<unsigned>(call), EIO))
                                return "the call cannot be taken away";
                              if (moveCode(scratch.path(name), scratch.path("other/new")) == 0)
                                return "moved";
                              return fs::is_empty(scratch.path("other")) ? "" : "a copy was left";
                            }),
        "")
        << name;
  EXPECT_EQ(scratch.content("tree/inner"), "inner");
  EXPECT_EQ(scratch.content("file"), "file");
}

TEST(MoveAcross, bringsTheNewNameToTheDiskBeforeTheSourceGoes) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::string source = scratch.file("file", "content");
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  bool isSynced = false;
                  auto look = [&](const kwtest::CallArguments &call) {
                    fs::path item = fs::read_symlink("/proc/self/fd/" + std::to_string(call[0]));
                    isSynced = isSynced || (item == scratch.path("other") &&
                                            fs::exists(item / "file") && fs::exists(source));
                  };
                  if (!kwtest::beforeCalls(SYS_fsync, look))
                    return "the calls cannot be watched";
                  if (moveCode(source, scratch.path("other/file")) != 0)
                    return "not moved";
                  return isSynced ? "" : "its folder is not synced";
                }),
            "");
}

// From there ".." leads up to where the folder is mounted, and not to the tree.
TEST(MoveAcross, refusesAFolderIntoItselfThroughAnotherMount) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              std::string tree = scratch.path("tree"), view = scratch.path("view");
              // With little room for a copy that would not end.
              if (!kwtest::mountMemory(scratch.path(), "nr_inodes=1000"))
                return "no mount";
              fs::create_directories(tree + "/sub/folder");
              fs::create_directory(view);
              if (!kwtest::bindMount(tree + "/sub", view))
                return "no mount";
              NS::FileManager &manager = NS::FileManager::defaultManager();
              for (auto operation :
                   {&NS::FileManager::moveItemAtPath, &NS::FileManager::copyItemAtPath}) {
                std::optional<NS::Error> error;
                if ((manager.*operation)(tree, view + "/new", &error))
                  return "it was made";
                if (error->underlyingError()->code() != EINVAL)
                  return error->description();
              }
              auto items = std::distance(fs::directory_iterator(view), {});
              return items == 1 ? "" : std::to_string(items) + " items";
            }),
            "");
}

TEST(MoveAcross, logsThatTheSourceHasChangedAndNoOtherOutcome) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  std::string path = scratch.file("tree/file", "content");
  LockedItem locked(scratch.file("locked", ""));
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  kwtest::LogRecorder log;
                  if (moveCode(scratch.file("plain", ""), scratch.path("other/plain")) != 0 ||
                      moveCode(scratch.path("locked"), scratch.path("other/locked")) == 0)
                    return "another outcome";
                  if (!log.lines().empty())
                    return log.lines()[0];
                  // Just before the copy is synced.
                  if (!kwtest::beforeCalls(SYS_syncfs, [&](const kwtest::CallArguments &) {
                        scratch.file("tree/file", "changed");
                      }))
                    return "the calls cannot be watched";
                  if (moveCode(scratch.path("tree"), scratch.path("other/tree")) == 0)
                    return "moved";
                  return log.lines().size() == 1 &&
                                 log.lines()[0].starts_with(path + " has changed")
                             ? ""
                             : "not one line about the change";
                }),
            "");
  EXPECT_EQ(scratch.content("tree/file"), "changed");
}

TEST(CopyItem, tellsThatTheProcessHasNoDescriptorsLeft) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  scratch.file("tree/file", "content");
  kwtest::SleepWatcher watcher;
  bool isCopied = false;
  for (std::size_t left = 0; left < 20 && !isCopied; ++left) {
    std::optional<NS::Error> error;
    {
      kwtest::FewDescriptorsLeft few(left);
      isCopied = NS::FileManager::defaultManager().copyItemAtPath(scratch.path("tree"),
                                                                  scratch.path("copy"), &error);
    }
    if (!isCopied) {
      ASSERT_TRUE(error && error->underlyingError()) << left;
      EXPECT_EQ(error->underlyingError()->code(), EMFILE) << left;
      EXPECT_FALSE(fs::exists(scratch.path("copy"))) << left;
    }
  }
  EXPECT_EQ(scratch.content("copy/file"), "content");
}

} // namespace
