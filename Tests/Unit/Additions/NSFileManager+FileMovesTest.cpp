// The two moves and their steps, and removals of extreme trees.
#include "Additions/NSFileManager+FileModificationsAdditions.h"

#include "Support/FakeFileFlags.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kwtest::FakeFileFlags;
using kwtest::ForwardingFileManager;
using kwtest::LockedItem;
using kwtest::LogRecorder;
using kwtest::ScratchFolder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// Records the steps of a move, returns the results that the test sets, and
// changes nothing.
class StepRecorder : public ForwardingFileManager {
public:
  std::vector<std::string> steps;
  std::optional<NS::Error> createError, removeError, moveError, trashError;
  bool createResult = true, removeResult = true, moveResult = true, trashResult = true;
  bool exists = false;

  bool fileExistsAtPath(const std::string &path) override {
    steps.push_back("exists " + path);
    return exists;
  }
  bool fileExistsAtPath(const std::string &path, bool &isDirectory) override {
    steps.push_back("folder " + path);
    isDirectory = false;
    return exists;
  }
  bool createDirectoryAtPath(const std::string &path, bool intermediates,
                             NS::ErrorSlot error) override {
    return answer(std::string(intermediates ? "create all " : "create ") + path, createError,
                  createResult, error);
  }
  bool createDirectoryAtURL(const NS::URL &url, bool intermediates, NS::ErrorSlot error) override {
    return answer(std::string(intermediates ? "create all " : "create ") + url.absoluteString(),
                  createError, createResult, error);
  }
  bool removeItemAtPath(const std::string &path, NS::ErrorSlot error) override {
    return answer("remove " + path, removeError, removeResult, error);
  }
  bool moveItemAtPath(const std::string &from, const std::string &to,
                      NS::ErrorSlot error) override {
    return answer("move " + from + " " + to, moveError, moveResult, error);
  }
  bool moveItemAtURL(const NS::URL &from, const NS::URL &to, NS::ErrorSlot error) override {
    return answer("move " + from.absoluteString() + " " + to.absoluteString(), moveError,
                  moveResult, error);
  }
  bool trashItemAtURL(const NS::URL &url, NS::ErrorSlot error) override {
    return answer("trash " + url.absoluteString(), trashError, trashResult, error);
  }

private:
  bool answer(std::string step, const std::optional<NS::Error> &failure, bool result,
              NS::ErrorSlot error) {
    steps.push_back(std::move(step));
    if (failure)
      NS::storeError(error, *failure);
    return result;
  }
};

NS::Error cocoaError(std::int64_t code) {
  return NS::Error(NS::CocoaErrorDomain, code);
}

TEST(AdvancedMove, toTheFolderThatHoldsTheItemIsSuccessWithoutAStep) {
  FakeFileFlags flags;
  StepRecorder manager;
  LogRecorder log;
  std::optional<NS::Error> error;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/a/b/item", "/a/b", &error));
  EXPECT_THAT(log.lines(),
              ElementsAre("Make no sense to move to the same folder. Treat as success."));
  EXPECT_THAT(manager.steps, IsEmpty());
  EXPECT_THAT(flags.calls, IsEmpty());
  EXPECT_FALSE(error);
}

TEST(AdvancedMove, toThatFolderWithATrailingSlashGoesOn) {
  ScratchFolder scratch;
  scratch.file("item", "kept");
  LogRecorder log;
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::advancedMoveItemAtPath(NS::FileManager::defaultManager(), scratch.path("item"),
                                          scratch.path() + "/", &error));
  EXPECT_EQ(error->code(), NS::FileWriteFileExistsError);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(scratch.content("item"), "kept");
}

TEST(AdvancedMove, unlocksTheParentTheItemAndTheNewParentInThatOrder) {
  FakeFileFlags flags;
  StepRecorder manager;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/no/item", "/there/item", nullptr));
  EXPECT_THAT(flags.calls, ElementsAre("stat /no", "stat /no/item", "stat /there"));
}

TEST(AdvancedMove, withoutADestinationMeansTheTrash) {
  FakeFileFlags flags;
  StepRecorder manager;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/no/item", std::nullopt, nullptr));
  EXPECT_THAT(manager.steps, ElementsAre("trash file:///no/item"));
  EXPECT_THAT(flags.calls, ElementsAre("stat /no", "stat /no/item", "stat "));
}

TEST(AdvancedMove, toABareNameMeansTheTrashToo) {
  FakeFileFlags flags;
  StepRecorder manager;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/no/item", "name", nullptr));
  EXPECT_THAT(manager.steps, ElementsAre("trash file:///no/item"));
}

TEST(AdvancedMove, passesOutTheErrorOfTheTrash) {
  FakeFileFlags flags;
  StepRecorder manager;
  manager.trashResult = false;
  manager.trashError = cocoaError(3328);
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::advancedMoveItemAtPath(manager, "/no/item", std::nullopt, &error));
  EXPECT_EQ(error->code(), 3328);
}

TEST(AdvancedMove, makesAMissingParentAndMovesToAFoldersURL) {
  FakeFileFlags flags;
  StepRecorder manager;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/no/item", "/there/is/item", nullptr));
  EXPECT_THAT(manager.steps, ElementsAre("create all file:///there/is",
                                         "move file:///no/item file:///there/is/item/"));
}

TEST(AdvancedMove, doesNotMakeAParentThatIsThere) {
  FakeFileFlags flags;
  StepRecorder manager;
  EXPECT_TRUE(kw::advancedMoveItemAtPath(manager, "/no/item", "/etc/item", nullptr));
  EXPECT_THAT(manager.steps, ElementsAre("move file:///no/item file:///etc/item/"));
}

TEST(AdvancedMove, endsWhenTheParentCannotBeMade) {
  FakeFileFlags flags;
  StepRecorder manager;
  LogRecorder log;
  manager.createResult = false;
  manager.createError = cocoaError(642);
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::advancedMoveItemAtPath(manager, "/no/item", "/there/item", &error));
  EXPECT_EQ(error->code(), 642);
  EXPECT_EQ(manager.steps.size(), 1u);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AdvancedMove, makesAllMissingFoldersForReal) {
  ScratchFolder scratch;
  scratch.file("item", "content");
  EXPECT_TRUE(kw::advancedMoveItemAtPath(NS::FileManager::defaultManager(), scratch.path("item"),
                                         scratch.path("a/b/c/item"), nullptr));
  EXPECT_EQ(scratch.content("a/b/c/item"), "content");
}

TEST(AdvancedMove, doesNotReplaceAnItem) {
  ScratchFolder scratch;
  scratch.file("item", "new");
  fs::create_directory(scratch.path("a"));
  scratch.file("a/item", "old");
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::advancedMoveItemAtPath(NS::FileManager::defaultManager(), scratch.path("item"),
                                          scratch.path("a/item"), &error));
  EXPECT_EQ(error->code(), NS::FileWriteFileExistsError);
  EXPECT_EQ(scratch.content("a/item"), "old");
}

TEST(AdvancedMove, unlocksTheSourceAndBothParentsButNothingInside) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("from/item"));
  fs::create_directory(scratch.path("to"));
  LockedItem inner(scratch.file("from/item/inner", ""));
  KW_REQUIRE_LOCKED(inner);
  LockedItem item(scratch.path("from/item")), from(scratch.path("from")), to(scratch.path("to"));
  EXPECT_TRUE(kw::advancedMoveItemAtPath(NS::FileManager::defaultManager(),
                                         scratch.path("from/item"), scratch.path("to/item"),
                                         nullptr));
  LockedItem moved(scratch.path("to/item/inner"), 0);
  EXPECT_NE(kwtest::inodeFlags(scratch.path("to/item/inner")) & FS_IMMUTABLE_FL, 0);
}

TEST(SwitchMove, withBothSwitchesOffIsThePlainMoveOfTheSharedManager) {
  FakeFileFlags flags;
  StepRecorder shared, receiver;
  NS::ScopedOverride<NS::FileManager> override(shared);
  EXPECT_TRUE(kw::moveItemAtPath(receiver, "/a/b", "/c/d", false, false, nullptr));
  EXPECT_THAT(shared.steps, ElementsAre("move /a/b /c/d"));
  EXPECT_THAT(receiver.steps, IsEmpty());
  EXPECT_THAT(flags.calls, IsEmpty());
}

TEST(SwitchMove, takesItsStepsInOrder) {
  StepRecorder shared;
  NS::ScopedOverride<NS::FileManager> override(shared);
  shared.exists = true;
  EXPECT_TRUE(kw::moveItemAtPath(shared, "/a/b", "/c/d", true, true, nullptr));
  EXPECT_THAT(shared.steps, ElementsAre("folder /c", "create all /c", "exists /c/d", "remove /c/d",
                                        "move /a/b /c/d"));
}

TEST(SwitchMove, judgesTheFolderByTheErrorAlone) {
  StepRecorder shared;
  NS::ScopedOverride<NS::FileManager> override(shared);
  LogRecorder log;
  shared.createResult = false;
  EXPECT_TRUE(kw::moveItemAtPath(shared, "/a/b", "/c/d", true, false, nullptr));
  shared.createResult = true;
  shared.createError = cocoaError(640);
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::moveItemAtPath(shared, "/a/b", "/c/d", true, false, &error));
  EXPECT_EQ(error->code(), 640);
  EXPECT_THAT(log.lines(), ElementsAre("Creating directory: " + cocoaError(640).description()));
}

TEST(SwitchMove, judgesTheRemovalByTheErrorAlone) {
  StepRecorder shared;
  NS::ScopedOverride<NS::FileManager> override(shared);
  LogRecorder log;
  shared.exists = true;
  shared.removeResult = false;
  EXPECT_TRUE(kw::moveItemAtPath(shared, "/a/b", "/c/d", false, true, nullptr));
  shared.removeError = cocoaError(513);
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::moveItemAtPath(shared, "/a/b", "/c/d", false, true, &error));
  EXPECT_EQ(error->code(), 513);
  EXPECT_THAT(log.lines(), ElementsAre("Removing file: " + cocoaError(513).description()));
}

TEST(SwitchMove, needsBothTheResultAndNoErrorOfTheMove) {
  StepRecorder shared;
  NS::ScopedOverride<NS::FileManager> override(shared);
  LogRecorder log;
  std::optional<NS::Error> error;
  shared.moveError = cocoaError(516);
  EXPECT_FALSE(kw::moveItemAtPath(shared, "/a/b", "/c/d", false, false, &error));
  EXPECT_EQ(error->code(), 516);
  shared.moveError.reset();
  shared.moveResult = false;
  error.reset();
  EXPECT_FALSE(kw::moveItemAtPath(shared, "/a/b", "/c/d", false, false, &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(log.lines(),
              ElementsAre("Moving file: " + cocoaError(516).description(), "Moving file: (null)"));
}

TEST(SwitchMove, replacesAnExistingFileAndDoesNotMindAMissingOne) {
  ScratchFolder scratch;
  NS::FileManager &manager = NS::FileManager::defaultManager();
  scratch.file("old", "old");
  EXPECT_TRUE(kw::moveItemAtPath(manager, scratch.file("new", "new"), scratch.path("old"), false,
                                 true, nullptr));
  EXPECT_EQ(scratch.content("old"), "new");
  EXPECT_TRUE(kw::moveItemAtPath(manager, scratch.path("old"), scratch.path("a/b/new"), true, true,
                                 nullptr));
  EXPECT_EQ(scratch.content("a/b/new"), "new");
}

TEST(SwitchMove, doesNotRestoreTheRemovedDestinationWhenTheMoveFails) {
  ScratchFolder scratch;
  LogRecorder log;
  scratch.file("old", "old");
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::moveItemAtPath(NS::FileManager::defaultManager(), scratch.path("missing"),
                                  scratch.path("old"), false, true, &error));
  EXPECT_EQ(error->code(), NS::FileNoSuchFileError);
  EXPECT_FALSE(fs::exists(scratch.path("old")));
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith("Moving file: Error Domain=")));
}

TEST(SwitchMove, doesNotUnlockTheDestinationThatItRemoves) {
  ScratchFolder scratch;
  LockedItem locked(scratch.file("old", "old"));
  KW_REQUIRE_LOCKED(locked);
  LogRecorder log;
  EXPECT_FALSE(kw::moveItemAtPath(NS::FileManager::defaultManager(), scratch.file("new", "new"),
                                  scratch.path("old"), false, true, nullptr));
  EXPECT_EQ(scratch.content("old"), "old");
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith("Removing file: Error Domain=")));
}

// Locks the file at the end of a chain that no path reaches.
bool lockAtTheBottom(const std::string &root, int depth) {
  int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < depth && folder >= 0; ++level) {
    int next = ::openat(folder, "d", O_RDONLY | O_DIRECTORY);
    ::close(folder);
    folder = next;
  }
  int file = ::openat(folder, "locked", O_RDONLY | O_CREAT, 0600);
  int flags = FS_IMMUTABLE_FL;
  bool locked = file >= 0 && ::ioctl(file, FS_IOC_SETFLAGS, &flags) == 0;
  ::close(file);
  ::close(folder);
  return locked;
}

TEST(RemoveFile, unlocksAtTheBottomOfATreeDeeperThanAnyPath) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::mountMemory(scratch.path()))
                return "no mount";
              fs::create_directory(scratch.path("root"));
              kwtest::DeepChain chain(scratch.path("root"), 20'000);
              if (!lockAtTheBottom(scratch.path("root"), 20'000))
                return "memory volumes know no locks here";
              kwtest::limitDescriptors(64);
              NS::FileManager &manager = NS::FileManager::defaultManager();
              std::optional<NS::Error> error;
              if (manager.removeItemAtPath(scratch.path("root"), &error))
                return "the lock did not hold";
              if (!kw::removeFileAtPath(manager, scratch.path("root"), &error))
                return error->description().substr(0, 200);
              return fs::exists(scratch.path("root")) ? "still there" : "";
            }),
            "");
}

} // namespace
