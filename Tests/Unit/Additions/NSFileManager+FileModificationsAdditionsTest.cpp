// Removal with unlocking and a second attempt, truncation and emptying: with
// fakes for the order of the steps, with real locked items for their effect.
#include "Additions/NSFileManager+FileModificationsAdditions.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Trees/SecureRemoval.h"
#include "Protocol/Identity.h"
#include "Support/FakeFileFlags.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
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

NS::Error cocoaError(std::int64_t code, std::string_view domain = NS::CocoaErrorDomain) {
  return NS::Error(domain, code);
}

// The result of one attempt at a removal.
struct Attempt {
  bool result = false;
  std::optional<NS::Error> error;
};

// Answers removals from a list and notes them.
class ScriptedRemovals : public ForwardingFileManager {
public:
  explicit ScriptedRemovals(std::deque<Attempt> attempts) : attempts_(std::move(attempts)) {}

  bool removeItemAtPath(const std::string &path, NS::ErrorSlot error) override {
    removed.push_back(path);
    Attempt attempt = attempts_.front();
    attempts_.pop_front();
    if (attempt.error)
      NS::storeError(error, *attempt.error);
    return attempt.result;
  }

  std::vector<std::string> removed;

private:
  std::deque<Attempt> attempts_;
};

// Both immutable flags, and no other.
const std::string maskText = std::to_string(0x00020002);

TEST(UnlockFile, looksAtTheItemAloneUnlessRecursive) {
  FakeFileFlags flags;
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/x", false);
  EXPECT_THAT(flags.calls, ElementsAre("stat /x"));
}

TEST(UnlockFile, clearsBothImmutableFlagsAndKeepsAllOthers) {
  FakeFileFlags flags;
  flags.flags["/x"] = 0xffffffff;
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/x", false);
  EXPECT_THAT(flags.calls, ElementsAre("stat /x", "chflags /x " + std::to_string(0xfffdfffd)));
}

TEST(UnlockFile, clearsEitherFlagAlone) {
  for (std::int64_t flag : {0x2, 0x20000}) {
    FakeFileFlags flags;
    flags.flags["/x"] = flag | 0x8000;
    kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/x", false);
    EXPECT_THAT(flags.calls, ElementsAre("stat /x", "chflags /x 32768")) << flag;
  }
}

TEST(UnlockFile, leavesAnItemWithOtherFlagsAlone) {
  FakeFileFlags flags;
  flags.flags["/x"] = 0xfffdfffd;
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/x", false);
  EXPECT_THAT(flags.calls, ElementsAre("stat /x"));
}

TEST(UnlockFile, logsAFlagThatCannotBeClearedAndGoesOn) {
  FakeFileFlags flags;
  LogRecorder log;
  flags.flags["/nowhere"] = 2;
  flags.lockedBeneath["/nowhere"] = "/nowhere/child";
  flags.changeError = EPERM;
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/nowhere", true);
  EXPECT_THAT(log.lines(),
              ElementsAre("Failed to unset immutable flag for /nowhere with error: 1",
                          "Failed to unset immutable flag for /nowhere/child with error: 1"));
  EXPECT_THAT(flags.calls, ElementsAre("stat /nowhere", "chflags /nowhere 0",
                                       "clear beneath /nowhere " + maskText));
}

TEST(UnlockFile, goesOnBeneathAnItemWithoutStatusAndSaysNothing) {
  FakeFileFlags flags;
  LogRecorder log;
  flags.flags["/nowhere"] = -1;
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), "/nowhere", true);
  EXPECT_THAT(flags.calls, ElementsAre("stat /nowhere", "clear beneath /nowhere " + maskText));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(UnlockFile, neverDescendsThroughALink) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("outside"));
  LockedItem inner(scratch.file("outside/file", ""));
  KW_REQUIRE_LOCKED(inner);
  fs::create_directory_symlink("outside", scratch.path("link"));
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), scratch.path("link"), true);
  EXPECT_NE(kwtest::inodeFlags(scratch.path("outside/file")) & FS_IMMUTABLE_FL, 0);
}

TEST(UnlockFile, ofALinkClearsTheFlagsOfItsTarget) {
  ScratchFolder scratch;
  std::string target = scratch.file("target", "");
  fs::create_symlink("target", scratch.path("link"));
  LockedItem locked(target);
  KW_REQUIRE_LOCKED(locked);
  kw::tryToUnlockFileIfNeeded(NS::FileManager::defaultManager(), scratch.path("link"), true);
  EXPECT_EQ(kwtest::inodeFlags(target) & FS_IMMUTABLE_FL, 0);
}

TEST(RemoveFile, ofAMissingPathSucceedsAndLogsNothing) {
  ScratchFolder scratch;
  LogRecorder log;
  std::optional<NS::Error> error;
  EXPECT_TRUE(
      kw::removeFileAtPath(NS::FileManager::defaultManager(), scratch.path("missing"), &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(RemoveFile, leavesTheCallersErrorAloneWhenTheFirstAttemptSucceeds) {
  ScriptedRemovals manager({{true, cocoaError(513)}});
  std::optional<NS::Error> error = cocoaError(99);
  EXPECT_TRUE(kw::removeFileAtPath(manager, "/x", &error));
  EXPECT_EQ(error->code(), 99);
  EXPECT_THAT(manager.removed, ElementsAre("/x"));
}

TEST(RemoveFile, takesCodeFourOfAnyDomainForDone) {
  FakeFileFlags flags;
  ScriptedRemovals manager({{false, cocoaError(4, "elsewhere")}});
  std::optional<NS::Error> error;
  EXPECT_TRUE(kw::removeFileAtPath(manager, "/x", &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(flags.calls, IsEmpty());
}

TEST(RemoveFile, unlocksTheParentAloneAndTheItemWhollyBeforeTheSecondAttempt) {
  FakeFileFlags flags;
  ScriptedRemovals manager({{false, cocoaError(513)}, {true, {}}});
  EXPECT_TRUE(kw::removeFileAtPath(manager, "/parent/item", nullptr));
  EXPECT_THAT(flags.calls, ElementsAre("stat /parent", "stat /parent/item",
                                       "clear beneath /parent/item " + maskText));
  EXPECT_THAT(manager.removed, ElementsAre("/parent/item", "/parent/item"));
}

TEST(RemoveFile, thatIsCancelledNeitherUnlocksNorTriesAgainNorLogs) {
  FakeFileFlags flags;
  LogRecorder log;
  ScriptedRemovals manager({{false, cocoaError(NS::UserCancelledError)}});
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::removeFileAtPath(manager, "/x", &error));
  EXPECT_EQ(error->code(), NS::UserCancelledError);
  EXPECT_THAT(manager.removed, ElementsAre("/x"));
  EXPECT_THAT(flags.calls, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(RemoveFile, doesNotLogARefusalByLackOfPermission) {
  FakeFileFlags flags;
  LogRecorder log;
  ScriptedRemovals manager({{false, cocoaError(513)}, {false, cocoaError(513)}});
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::removeFileAtPath(manager, "/nowhere/x", &error));
  EXPECT_EQ(error->code(), 513);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(RemoveFile, logsAnyOtherFirstFailureAndTriesOnceMoreOnly) {
  FakeFileFlags flags;
  LogRecorder log;
  ScriptedRemovals manager({{false, cocoaError(512)}, {false, cocoaError(640)}});
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::removeFileAtPath(manager, "/nowhere/x", &error));
  EXPECT_EQ(error->code(), 640);
  EXPECT_EQ(manager.removed.size(), 2u);
  EXPECT_THAT(log.lines(), ElementsAre("An error occured while removing file at path "
                                       "(/nowhere/x): " +
                                       cocoaError(512).description()));
}

TEST(RemoveFile, handsOutTheFirstErrorBesideASecondAttemptThatSucceeds) {
  FakeFileFlags flags;
  LogRecorder log;
  ScriptedRemovals manager({{false, cocoaError(512)}, {true, {}}});
  std::optional<NS::Error> error;
  EXPECT_TRUE(kw::removeFileAtPath(manager, "/nowhere/x", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), 512);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(RemoveFile, doesNotTakeCodeFourOfTheSecondAttemptForDone) {
  FakeFileFlags flags;
  ScriptedRemovals manager({{false, cocoaError(513)}, {false, cocoaError(4)}});
  EXPECT_FALSE(kw::removeFileAtPath(manager, "/nowhere/x", nullptr));
}

TEST(RemoveFile, triesTwiceWhenAFailureCarriesNoError) {
  FakeFileFlags flags;
  LogRecorder log;
  ScriptedRemovals manager({{false, {}}, {false, {}}});
  std::optional<NS::Error> error = cocoaError(99);
  EXPECT_FALSE(kw::removeFileAtPath(manager, "/nowhere/x", &error));
  EXPECT_EQ(error->code(), 99);
  EXPECT_THAT(log.lines(),
              ElementsAre("An error occured while removing file at path (/nowhere/x): (null)"));
}

TEST(RemoveFile, removesALockedFile) {
  ScratchFolder scratch;
  LockedItem locked(scratch.file("file", "content"));
  KW_REQUIRE_LOCKED(locked);
  LogRecorder log;
  std::optional<NS::Error> error;
  EXPECT_TRUE(
      kw::removeFileAtPath(NS::FileManager::defaultManager(), scratch.path("file"), &error));
  EXPECT_FALSE(fs::exists(scratch.path("file")));
  ASSERT_TRUE(error) << "the first attempt's error stays";
  EXPECT_EQ(error->code(), NS::FileWriteNoPermissionError);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(RemoveFile, removesAFolderWithLockedItemsDeepInside) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("a/b/c"));
  LockedItem file(scratch.file("a/b/c/file", ""));
  KW_REQUIRE_LOCKED(file);
  LockedItem inner(scratch.path("a/b/c")), outer(scratch.path("a"));
  EXPECT_TRUE(kw::removeFileAtPath(NS::FileManager::defaultManager(), scratch.path("a"), nullptr));
  EXPECT_FALSE(fs::exists(scratch.path("a")));
}

TEST(RemoveFile, removesAnItemOfALockedFolderAndLeavesTheFolderUnlocked) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("parent"));
  scratch.file("parent/item", "");
  LockedItem sibling(scratch.file("parent/sibling", ""));
  LockedItem parent(scratch.path("parent"));
  KW_REQUIRE_LOCKED(parent);
  EXPECT_TRUE(kw::removeFileAtPath(NS::FileManager::defaultManager(), scratch.path("parent/item"),
                                   nullptr));
  EXPECT_FALSE(fs::exists(scratch.path("parent/item")));
  EXPECT_NE(kwtest::inodeFlags(scratch.path("parent/sibling")) & FS_IMMUTABLE_FL, 0);
}

TEST(RemoveFile, cannotRemoveAnAppendOnlyFile) {
  ScratchFolder scratch;
  LockedItem locked(scratch.file("file", ""), FS_APPEND_FL | FS_IMMUTABLE_FL);
  KW_REQUIRE_LOCKED(locked);
  std::optional<NS::Error> error;
  EXPECT_FALSE(
      kw::removeFileAtPath(NS::FileManager::defaultManager(), scratch.path("file"), &error));
  EXPECT_EQ(error->code(), NS::FileWriteNoPermissionError);
  EXPECT_EQ(kwtest::inodeFlags(scratch.path("file")) & (FS_APPEND_FL | FS_IMMUTABLE_FL),
            FS_APPEND_FL);
}

// Plays removefile and records its arguments.
class FakeSecureRemoval final : public NS::SecureRemoval {
public:
  explicit FakeSecureRemoval(int result, int errnum = EBUSY) : result_(result), errnum_(errnum) {}

  int removefile(const std::string &path, std::uint32_t flags) override {
    calls.push_back("removefile " + path + " " + std::to_string(flags));
    errno = errnum_;
    return result_;
  }

  std::vector<std::string> calls;

private:
  int result_;
  int errnum_;
  NS::ScopedOverride<NS::SecureRemoval> override_{*this};
};

// Answers every key with the key itself.
class FakeStrings final : public NS::Bundle {
public:
  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    return key + "|" + value.value_or("nil") + "|" + table.value_or("nil");
  }
  std::optional<std::string> infoString(const std::string &) override { return {}; }
  std::optional<std::string> executablePath() override { return {}; }

private:
  NS::ScopedOverride<NS::Bundle> override_{*this};
};

TEST(SecurelyRemoveFile, ofANilPathIsLoggedAndLeavesTheErrorAlone) {
  FakeSecureRemoval removal(0);
  LogRecorder log;
  std::optional<NS::Error> error;
  EXPECT_FALSE(
      kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), std::nullopt, &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(log.lines(), ElementsAre("Missing path. Treat as an error."));
  EXPECT_THAT(removal.calls, IsEmpty());
}

TEST(SecurelyRemoveFile, unlocksTheItemAloneAndAsksForOneOverwritingPass) {
  FakeFileFlags flags;
  FakeSecureRemoval removal(0);
  std::optional<NS::Error> error;
  EXPECT_TRUE(
      kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), "/nowhere/x", &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(flags.calls, ElementsAre("stat /nowhere/x"));
  EXPECT_THAT(removal.calls, ElementsAre("removefile /nowhere/x 17"));
}

TEST(SecurelyRemoveFile, reportsTheReturnValueOfTheCallWithTheGenericDescription) {
  FakeFileFlags flags;
  FakeSecureRemoval removal(-1);
  FakeStrings strings;
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), "/x", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kw::kSecureRemoveErrorDomain);
  EXPECT_THAT(error->domain(), testing::EndsWith(".SecureRemoveErrorDomain"));
  EXPECT_EQ(error->code(), -1);
  EXPECT_EQ(error->localizedDescription(), "ErrorDescRemoving_GenericError||Errors");
  EXPECT_EQ(error->userInfo().size(), 1u);
  EXPECT_EQ(error->underlyingError(), nullptr);
}

TEST(SecurelyRemoveFile, saysThatItWasCancelled) {
  FakeFileFlags flags;
  FakeSecureRemoval removal(-1, ECANCELED);
  std::optional<NS::Error> error;
  EXPECT_FALSE(kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), "/x", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), NS::CocoaErrorDomain);
  EXPECT_EQ(error->code(), NS::UserCancelledError);
}

TEST(SecurelyRemoveFile, failsWithoutAnErrorPointer) {
  FakeFileFlags flags;
  FakeSecureRemoval removal(-1);
  EXPECT_FALSE(kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), "/x", nullptr));
}

TEST(SecurelyRemoveFile, removesAFolderWithAllItHolds) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("a/b"));
  scratch.file("a/b/file", "secret");
  EXPECT_TRUE(
      kw::securelyRemoveFileAtPath(NS::FileManager::defaultManager(), scratch.path("a"), nullptr));
  EXPECT_FALSE(fs::exists(scratch.path("a")));
}

TEST(SecurelyRemoveFile, unlocksALockedFileButNothingInsideAFolder) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  LockedItem inner(scratch.file("folder/inner", "content"));
  LockedItem file(scratch.file("file", "content"));
  KW_REQUIRE_LOCKED(file);
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::optional<NS::Error> error;
  EXPECT_TRUE(kw::securelyRemoveFileAtPath(manager, scratch.path("file"), nullptr));
  EXPECT_FALSE(kw::securelyRemoveFileAtPath(manager, scratch.path("folder"), &error));
  EXPECT_EQ(error->code(), -1);
  EXPECT_EQ(scratch.content("folder/inner"), "content");
}

TEST(TruncateFile, cutsAFileToNothing) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "content");
  EXPECT_TRUE(kw::truncateFileAtPath(NS::FileManager::defaultManager(), path));
  EXPECT_EQ(fs::file_size(path), 0u);
}

TEST(TruncateFile, ofAnEmptyFileSucceeds) {
  ScratchFolder scratch;
  EXPECT_TRUE(kw::truncateFileAtPath(NS::FileManager::defaultManager(), scratch.file("file", "")));
}

TEST(TruncateFile, ofAFolderOrAMissingItemFailsSilently) {
  ScratchFolder scratch;
  LogRecorder log;
  NS::FileManager &manager = NS::FileManager::defaultManager();
  EXPECT_FALSE(kw::truncateFileAtPath(manager, scratch.path()));
  EXPECT_FALSE(kw::truncateFileAtPath(manager, scratch.path("missing")));
  EXPECT_FALSE(kw::truncateFileAtPath(manager, ""));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(TruncateFile, asksTheReceiverWhetherTheItemIsAFile) {
  struct Receiver : ForwardingFileManager {
    using ForwardingFileManager::fileExistsAtPath;
    bool fileExistsAtPath(const std::string &, bool &isDirectory) override {
      isDirectory = isFolder;
      return isThere;
    }
    bool isThere = true;
    bool isFolder = false;
  } receiver;
  ScratchFolder scratch;
  std::string path = scratch.file("file", "content");
  receiver.isFolder = true;
  EXPECT_FALSE(kw::truncateFileAtPath(receiver, path));
  receiver.isFolder = false;
  receiver.isThere = false;
  EXPECT_FALSE(kw::truncateFileAtPath(receiver, path));
  EXPECT_EQ(scratch.content("file"), "content");
}

TEST(TruncateFile, doesNotUnlockTheFile) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "content");
  LockedItem locked(path);
  KW_REQUIRE_LOCKED(locked);
  EXPECT_FALSE(kw::truncateFileAtPath(NS::FileManager::defaultManager(), path));
  EXPECT_EQ(scratch.content("file"), "content");
}

TEST(TruncateFile, failsSilentlyWhereTheFileCannotBeOpened) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "content");
  LockedItem locked(path, FS_APPEND_FL);
  KW_REQUIRE_LOCKED(locked);
  LogRecorder log;
  EXPECT_FALSE(kw::truncateFileAtPath(NS::FileManager::defaultManager(), path));
  EXPECT_THAT(log.lines(), IsEmpty());
}

// A file in memory that is sealed against it can be opened, but not cut.
TEST(TruncateFile, logsAnExceptionAndFails) {
  int file = ::memfd_create("sealed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  ASSERT_EQ(::write(file, "text", 4), 4);
  ASSERT_EQ(::fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK), 0);
  LogRecorder log;
  EXPECT_FALSE(kw::truncateFileAtPath(NS::FileManager::defaultManager(),
                                      "/proc/self/fd/" + std::to_string(file)));
  ::close(file);
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith("Failed to truncate file with exception: ")));
}

TEST(RemoveContents, ofAFolderKeepsTheFolderAlone) {
  ScratchFolder scratch;
  scratch.file(".hidden", "");
  fs::create_directories(scratch.path("a/b"));
  EXPECT_TRUE(
      kw::removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), scratch.path()));
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(RemoveContents, ofAnEmptyFolderSucceeds) {
  ScratchFolder scratch;
  EXPECT_TRUE(
      kw::removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), scratch.path()));
}

TEST(RemoveContents, ofAFileIsLoggedAndFails) {
  ScratchFolder scratch;
  LogRecorder log;
  std::string path = scratch.file("file", "");
  EXPECT_FALSE(kw::removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), path));
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith("Error: failed to get contents of directory " +
                                                  path + " with error Error Domain=")));
}

TEST(RemoveContents, stopsWhenItIsCancelled) {
  ScratchFolder scratch;
  scratch.file("file", "");
  NS::Progress progress;
  progress.cancel();
  NS::Progress::Scope scope(progress);
  EXPECT_FALSE(
      kw::removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), scratch.path()));
  EXPECT_TRUE(fs::exists(scratch.path("file")));
}

TEST(RemoveContents, attemptsEveryChildAndFailsWhenOneStays) {
  ScratchFolder scratch;
  LockedItem locked(scratch.file("b", ""), FS_APPEND_FL);
  KW_REQUIRE_LOCKED(locked);
  scratch.file("a", "");
  scratch.file("c", "");
  EXPECT_FALSE(
      kw::removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), scratch.path()));
  EXPECT_FALSE(fs::exists(scratch.path("a")) || fs::exists(scratch.path("c")));
  EXPECT_TRUE(fs::exists(scratch.path("b")));
}

} // namespace
