// Moves to another volume whose source changes meanwhile, and attributes that
// the other volume cannot hold: no data is lost, and no user gains access.
#include "Foundation/Trees/POSIX/TreeMove.h"

#include "Foundation/Trees/FileManager.h"
#include "Support/AccessList.h"
#include "Support/AnotherVolume.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/MoveCode.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/Sanitizers.h"
#include "Support/ScratchFolder.h"
#include "Support/SteppedMove.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kwtest::besideAnotherVolume;
using kwtest::LockedItem;
using kwtest::moveCode;
using kwtest::ScratchFolder;
using kwtest::SteppedMove;
using NS::MoveAcross;
using NS::TreeResult;
using NS::TreeStep;

void makeTree(const ScratchFolder &scratch) {
  fs::create_directories(scratch.path("tree/inner"));
  scratch.file("tree/first", "first");
  scratch.file("tree/inner/second", "second");
}

// A change of the tree by another process, and the item that it replaces.
struct Change {
  const char *name;
  std::function<void(const ScratchFolder &)> make;
  const char *path;
  const char *content; // to be kept
};

const std::vector<Change> &changes() {
  static const std::vector<Change> all = {
      {"a file is replaced",
       [](const ScratchFolder &scratch) {
         scratch.file("new", "later!");
         fs::rename(scratch.path("new"), scratch.path("tree/inner/second"));
       },
       "tree/inner/second", "later!"},
      {"a file grows",
       [](const ScratchFolder &scratch) {
         std::ofstream(scratch.path("tree/inner/second"), std::ios::app) << " and more";
       },
       "tree/inner/second", "second and more"},
      {"a file's data changes, and its time is put back",
       [](const ScratchFolder &scratch) {
         std::string path = scratch.path("tree/inner/second");
         auto time = fs::last_write_time(path);
         std::ofstream(path) << "s3cond";
         fs::last_write_time(path, time);
       },
       "tree/inner/second", "s3cond"},
      {"a file is added",
       [](const ScratchFolder &scratch) { scratch.file("tree/inner/third", "third"); },
       "tree/inner/third", "third"},
      {"a folder is exchanged for another with files of the same names",
       [](const ScratchFolder &scratch) {
         fs::create_directory(scratch.path("new"));
         scratch.file("new/second", "sEcond");
         fs::rename(scratch.path("tree/inner"), scratch.path("former"));
         fs::rename(scratch.path("new"), scratch.path("tree/inner"));
       },
       "tree/inner/second", "sEcond"},
  };
  return all;
}

// Until a change of a file is told by its time of change; it moves on with
// each tick of the kernel's clock.
void waitForClockTick(const std::string &path) {
  struct stat before, after;
  ::stat(path.c_str(), &before);
  std::string probe = path + "-probe";
  do {
    std::ofstream(probe) << "x";
    ::stat(probe.c_str(), &after);
  } while (after.st_ctim.tv_sec == before.st_ctim.tv_sec &&
           after.st_ctim.tv_nsec == before.st_ctim.tv_nsec);
  ::unlink(probe.c_str());
}

using Step = TreeResult (MoveAcross::*)();

// Makes the change just before a step, which has to refuse it and leave it alone.
std::string changeBefore(Step step, const Change &change, const ScratchFolder &scratch) {
  makeTree(scratch);
  waitForClockTick(scratch.path("tree/inner/second"));
  SteppedMove move(scratch);
  for (Step earlier : {&MoveAcross::copy, &MoveAcross::place}) {
    if (earlier == step)
      break;
    if (((*move).*earlier)())
      return "an earlier step failed";
  }
  change.make(scratch);
  TreeResult failure = ((*move).*step)();
  if (!failure)
    return "not refused";
  if (failure->outcome.step() != TreeStep::Compare)
    return "refused for something else";
  return scratch.content(change.path) == change.content ? "" : "the change is lost";
}

TEST(MoveAcross, keepsASourceThatChangedDuringTheCopyAndLeavesNothing) {
  KW_REQUIRE_ROOT();
  for (const Change &change : changes()) {
    ScratchFolder scratch;
    auto body = [&]() -> std::string {
      if (std::string wrong = changeBefore(&MoveAcross::place, change, scratch); !wrong.empty())
        return wrong;
      if (scratch.content("tree/first") != "first")
        return "the source was touched";
      return fs::is_empty(scratch.path("other")) ? "" : "something was left";
    };
    EXPECT_EQ(besideAnotherVolume(scratch, body), "") << change.name;
  }
}

TEST(MoveAcross, removesNothingThatChangedAfterTheCopyWasPlaced) {
  KW_REQUIRE_ROOT();
  for (const Change &change : changes()) {
    ScratchFolder scratch;
    auto body = [&]() -> std::string {
      if (std::string wrong = changeBefore(&MoveAcross::removeOriginal, change, scratch);
          !wrong.empty())
        return wrong;
      return scratch.content("other/tree/inner/second") == "second" ? "" : "the copy is not whole";
    };
    EXPECT_EQ(besideAnotherVolume(scratch, body), "") << change.name;
  }
}

TEST(MoveAcross, countsVanishedItemsAsMoved) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  makeTree(scratch);
                                  SteppedMove move(scratch);
                                  if (move->copy())
                                    return "not copied";
                                  fs::remove(scratch.path("tree/first"));
                                  if (move->place())
                                    return "not placed";
                                  fs::remove_all(scratch.path("tree"));
                                  return move->removeOriginal() ? "failed" : "";
                                }),
            "");
}

// Files go while the copy is under way: each is met, or not, before the look at
// it or between that and its opening.
TEST(MoveAcross, isNotEndedByFilesThatVanish) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  for (int turn = 0; turn < 40; ++turn) {
                    for (int folder = 0; folder < 20; ++folder) {
                      std::string name = std::string("tree/") + std::to_string(folder);
                      fs::create_directories(scratch.path(name + "/sub"));
                      for (int file = 0; file < 10; ++file)
                        scratch.file(name + "/" + std::to_string(file), "x");
                    }
                    std::atomic<bool> begun{false};
                    std::thread other([&] {
                      begun = true;
                      std::error_code ignored; // the move removes as well
                      for (int folder = 19; folder >= 0; --folder)
                        fs::remove_all(scratch.path("tree/" + std::to_string(folder)), ignored);
                    });
                    while (!begun)
                      std::this_thread::yield();
                    std::optional<NS::Error> error;
                    bool moved = NS::FileManager::defaultManager().moveItemAtPath(
                        scratch.path("tree"), scratch.path("other/tree"), &error);
                    other.join();
                    if (!moved)
                      return error->description();
                    fs::remove_all(scratch.path("other/tree"));
                  }
                  return "";
                }),
            "");
}

TEST(MoveAcross, refusesBeforeAnyCopyWhereNothingCanBeRemovedFromTheSourcesFolder) {
  KW_REQUIRE_ROOT();
  for (int flag : {FS_APPEND_FL, FS_IMMUTABLE_FL}) {
    ScratchFolder scratch;
    fs::create_directory(scratch.path("from"));
    scratch.file("from/file", "kept");
    LockedItem folder(scratch.path("from"), flag);
    KW_REQUIRE_LOCKED(folder);
    EXPECT_EQ(
        besideAnotherVolume(scratch,
                            [&]() -> std::string {
                              if (moveCode(scratch.path("from/file"), scratch.path("other/file")) !=
                                  NS::FileWriteNoPermissionError)
                                return "another error";
                              return fs::is_empty(scratch.path("other")) ? "" : "a copy was left";
                            }),
        "")
        << flag;
    EXPECT_EQ(scratch.content("from/file"), "kept");
  }
}

TEST(MoveAcross, leavesNothingBesideTheItemInAnAppendOnlyFolder) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("archive/deeper"));
  LockedItem outer(scratch.path("archive"), FS_APPEND_FL);
  LockedItem inner(scratch.path("archive/deeper"), FS_APPEND_FL);
  KW_REQUIRE_LOCKED(inner);
  EXPECT_EQ(
      besideAnotherVolume(scratch,
                          [&]() -> std::string {
                            for (const char *folder : {"archive", "archive/deeper"}) {
                              scratch.file("other/file", "moved");
                              fs::create_directory(scratch.path("other/tree"));
                              for (const char *name : {"file", "tree"})
                                if (moveCode(scratch.path(std::string("other/") + name),
                                             scratch.path(std::string(folder) + "/" + name)) != 0)
                                  return std::string("not moved into ") + folder;
                            }
                            return "";
                          }),
      "");
  EXPECT_EQ(scratch.content("archive/deeper/file"), "moved");
  std::size_t items = 0;
  for (const auto &entry : fs::recursive_directory_iterator(scratch.path())) {
    ++items;
    EXPECT_EQ(entry.path().filename().string().find(".keepwell"), std::string::npos);
  }
  EXPECT_EQ(items, 7u); // "other", and two folders with a file and a folder each
}

// As the root of a volume is, with nothing above it.
TEST(MoveAcross, refusesAnAppendOnlyVolume) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("archive"));
  LockedItem archive(scratch.path("archive"), FS_APPEND_FL);
  KW_REQUIRE_LOCKED(archive);
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  if (!kwtest::bindMount(scratch.path("archive"), scratch.path("archive")))
                    return "no mount";
                  scratch.file("other/file", "kept");
                  if (moveCode(scratch.path("other/file"), scratch.path("archive/file")) !=
                      NS::FileWriteNoPermissionError)
                    return "another error";
                  return scratch.content("other/file") == "kept" ? "" : "gone";
                }),
            "");
  EXPECT_TRUE(fs::is_empty(scratch.path("archive")));
}

// Counts the log lines about attributes that were left out.
class OmissionLines {
public:
  // Those that have this text.
  std::size_t count(const std::string &text = "") const {
    std::size_t lines = 0;
    for (const std::string &line : log_.lines())
      lines += line.find("does without") != line.npos && line.find(text) != line.npos ? 1u : 0u;
    return lines;
  }

private:
  kwtest::LogRecorder log_;
};

TEST(MoveAcross, toAVolumeWithoutAccessListsGrantsNoFurtherAccess) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  // The owner and one user may write; the group has no right. The mask is in
  // the group's bits of the mode, but does not grant the group any right.
  std::string list = kwtest::accessListOf(
      {{ACL_USER_OBJ, 6}, {ACL_USER, 6, 1234}, {ACL_GROUP_OBJ, 0}, {ACL_MASK, 6}, {ACL_OTHER, 0}});
  for (const char *name : {"tree/one", "tree/two"})
    KW_REQUIRE_ATTRIBUTE(scratch.file(name, "secret"), kwtest::accessListName, list);
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              if (::mount("ramfs", scratch.path("other").c_str(), "ramfs", 0, nullptr) != 0)
                return "no mount";
              OmissionLines lines;
              if (moveCode(scratch.path("tree"), scratch.path("other/tree")) != 0)
                return "not moved";
              for (const char *name : {"other/tree/one", "other/tree/two"})
                if (fs::status(scratch.path(name)).permissions() !=
                    (fs::perms::owner_read | fs::perms::owner_write))
                  return std::string(name) + " lets others in";
              return lines.count() == 1 ? "" : "not one line of the log";
            }),
            "");
}

TEST(MoveAcross, leavesOutAttributesThatTheVolumeCannotHold) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  fs::create_directory(scratch.path("other/tree"));
                  std::string path = scratch.file("other/tree/file", "content");
                  for (const std::string &item : {path, scratch.path("other/tree")})
                    if (!kwtest::setAttribute(item, "trusted.large", std::string(30'000, 'x')) ||
                        !kwtest::setAttribute(item, "trusted.small", "kept"))
                      return "no attributes";
                  OmissionLines lines;
                  if (std::int64_t code =
                          moveCode(scratch.path("other/tree"), scratch.path("tree")))
                    return "error " + std::to_string(code);
                  bool holdsLarge =
                      !kwtest::attribute(scratch.path("tree/file"), "trusted.large").empty();
                  std::size_t expected = holdsLarge ? 0 : 1;
                  return lines.count() == expected && lines.count(" of " + path) == expected &&
                                 lines.count(", 2 in all") == expected
                             ? ""
                             : "not one line of the log for the file and its folder";
                }),
            "");
  EXPECT_EQ(scratch.content("tree/file"), "content");
  EXPECT_EQ(kwtest::attribute(scratch.path("tree/file"), "trusted.small"), "kept");
}

// The lowest folder of a chain, opened step by step.
NS::Descriptor bottomOf(const std::string &path, const std::string &name) {
  NS::Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (;;) {
    NS::Descriptor next(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!next)
      return folder;
    folder = std::move(next);
  }
}

// A file of ext4 has 65,000 names at most, of memory as many as there is room for.
TEST(MoveAcross, hasAFurtherCopyOnlyWhenOneCanHaveNoMoreNames) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  constexpr int names = 65'100;
                  fs::create_directory(scratch.path("other/tree"));
                  scratch.file("other/tree/0", "text");
                  for (int name = 1; name < names; ++name)
                    fs::create_hard_link(scratch.path("other/tree/0"),
                                         scratch.path("other/tree/" + std::to_string(name)));
                  if (moveCode(scratch.path("other/tree"), scratch.path("tree")))
                    return "the move failed";
                  std::map<ino_t, int> copies;
                  for (int name = 0; name < names; ++name) {
                    struct stat status {};
                    std::string path = scratch.path("tree/" + std::to_string(name));
                    if (::lstat(path.c_str(), &status) != 0)
                      return path + " is missing";
                    ++copies[status.st_ino];
                  }
                  return copies.size() <= 2 ? "" : std::to_string(copies.size()) + " copies";
                }),
            "");
}

TEST(MoveAcross, keepsHardLinksAtAnyDepthInLittleMemory) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  constexpr int pairs = 2000;
                  fs::create_directory(scratch.path("tree"));
                  std::string name(255, 'n');
                  kwtest::DeepChain chain(scratch.path("tree"), 1000, name);
                  NS::Descriptor bottom = bottomOf(scratch.path("tree"), name);
                  for (int number = 0; number < pairs; ++number) {
                    std::string first = std::to_string(number), second = first + "-again";
                    if (::mknodat(bottom.get(), first.c_str(), S_IFREG | 0600, 0) != 0 ||
                        ::linkat(bottom.get(), first.c_str(), bottom.get(), second.c_str(), 0) != 0)
                      return "no pair";
                  }
                  bottom.reset();
                  rusage before, after;
                  ::getrusage(RUSAGE_SELF, &before);
                  if (std::int64_t code =
                          moveCode(scratch.path("tree"), scratch.path("other/tree")))
                    return "error " + std::to_string(code);
                  ::getrusage(RUSAGE_SELF, &after);
                  long grown = after.ru_maxrss - before.ru_maxrss;
                  if (grown > 16 * 1024 && !kwtest::addsMemory)
                    return std::to_string(grown) + " KiB more";
                  bottom = bottomOf(scratch.path("other/tree"), name);
                  for (int number = 0; number < pairs; ++number) {
                    struct stat status;
                    if (::fstatat(bottom.get(), std::to_string(number).c_str(), &status, 0) != 0 ||
                        status.st_nlink != 2)
                      return "a pair was parted";
                  }
                  if (std::distance(fs::directory_iterator(scratch.path("other")), {}) != 1)
                    return "something was left beside the copy";
                  return "";
                }),
            "");
}

} // namespace
