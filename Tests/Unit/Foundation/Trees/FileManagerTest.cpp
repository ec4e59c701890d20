// Single items: existence, access, listings, attributes, links and folders.
#include "Foundation/Trees/FileManager.h"

#include "Foundation/Trees/Internal/TreeOperations.h"

#include "Support/ForkedChild.h"
#include "Support/MissingCall.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/SpecialItems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

NS::FileManager &manager() {
  return NS::FileManager::defaultManager();
}

std::int64_t codeOf(const std::optional<NS::Error> &error) {
  return error ? error->code() : 0;
}

TEST(FileManager, findsTheTargetOfALink) {
  ScratchFolder scratch;
  std::string file = scratch.file("file", "");
  fs::create_symlink("file", scratch.path("link"));
  fs::create_symlink("missing", scratch.path("dangling"));
  EXPECT_TRUE(manager().fileExistsAtPath(file));
  EXPECT_TRUE(manager().fileExistsAtPath(scratch.path("link")));
  EXPECT_FALSE(manager().fileExistsAtPath(scratch.path("dangling")));
  EXPECT_FALSE(manager().fileExistsAtPath(""));
}

TEST(FileManager, waitsForMemoryBeforeItSaysThatAnItemDoesNotExist) {
  ScratchFolder scratch;
  kwtest::SleepWatcher sleeps;
  errno = ENOMEM; // of an earlier call
  EXPECT_TRUE(manager().fileExistsAtPath(scratch.path()));
  EXPECT_EQ(sleeps.sleeps, 0);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_newfstatat, ENOMEM))
                return "the call cannot be taken away";
              if (manager().fileExistsAtPath(scratch.path()))
                return "it was found";
              return sleeps.sleeps > 0 ? "" : "not a single wait";
            }),
            "");
}

TEST(FileManager, tellsFoldersFromFiles) {
  ScratchFolder scratch;
  bool isDirectory = false;
  EXPECT_TRUE(manager().fileExistsAtPath(scratch.path(), isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_TRUE(manager().fileExistsAtPath(scratch.file("file", ""), isDirectory));
  EXPECT_FALSE(isDirectory);
  isDirectory = true;
  EXPECT_FALSE(manager().fileExistsAtPath(scratch.path("missing"), isDirectory));
  EXPECT_FALSE(isDirectory);
}

TEST(FileManager, neverCutsAPathAtANulByte) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "content") + std::string("\0tail", 5);
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().fileExistsAtPath(path));
  EXPECT_FALSE(manager().isReadableFileAtPath(path));
  EXPECT_FALSE(manager().removeItemAtPath(path, &error));
  EXPECT_EQ(codeOf(error), NS::FileWriteInvalidFileNameError);
  EXPECT_FALSE(manager().moveItemAtPath(path, scratch.path("other"), nullptr));
  EXPECT_FALSE(manager().moveItemAtPath(scratch.path("file"), path, nullptr));
  EXPECT_FALSE(manager().copyItemAtPath(path, scratch.path("other"), nullptr));
  EXPECT_FALSE(manager().createDirectoryAtPath(path, true, nullptr));
  EXPECT_FALSE(manager().trashItemAtURL(NS::URL::fileURLWithPath(path, false), nullptr));
  EXPECT_FALSE(manager().contentsOfDirectoryAtPath(scratch.path() + std::string("\0", 1), &error));
  EXPECT_EQ(codeOf(error), NS::FileReadInvalidFileNameError);
  EXPECT_FALSE(manager().attributesOfItemAtPath(path, nullptr));
  EXPECT_FALSE(manager().enumeratorAtPath(scratch.path() + std::string("\0", 1))->nextObject());
  EXPECT_EQ(scratch.content("file"), "content");
}

TEST(FileManager, asksForAccessWithTheEffectiveIdentity) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "only root can become somebody else";
  ScratchFolder scratch;
  std::string file = scratch.file("file", ""), script = scratch.script("script", "");
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(file, fs::perms(0600));
  EXPECT_TRUE(manager().isReadableFileAtPath(file));
  EXPECT_FALSE(manager().isExecutableFileAtPath(file));
  EXPECT_TRUE(manager().isExecutableFileAtPath(script));
  EXPECT_TRUE(manager().isExecutableFileAtPath(scratch.path()));
  EXPECT_FALSE(manager().isReadableFileAtPath(scratch.path("missing")));
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (::seteuid(65534) != 0)
                return "still root";
              return manager().isReadableFileAtPath(file) ? "readable by others" : "";
            }),
            "");
}

TEST(FileManager, listsAFolderWithoutItsOwnDots) {
  ScratchFolder scratch;
  EXPECT_THAT(*manager().contentsOfDirectoryAtPath(scratch.path(), nullptr), IsEmpty());
  scratch.file("a", "");
  scratch.file(".b", "");
  scratch.file("...", "");
  scratch.file("\xff\n", "");
  EXPECT_THAT(*manager().contentsOfDirectoryAtPath(scratch.path(), nullptr),
              UnorderedElementsAre("a", ".b", "...", "\xff\n"));
}

TEST(FileManager, reportsAFolderThatCannotBeListed) {
  ScratchFolder scratch;
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().contentsOfDirectoryAtPath(scratch.path("missing"), &error));
  EXPECT_EQ(codeOf(error), NS::FileReadNoSuchFileError);
  EXPECT_FALSE(manager().contentsOfDirectoryAtPath(scratch.file("file", ""), &error));
  EXPECT_EQ(codeOf(error), NS::FileReadUnknownError);
  EXPECT_FALSE(manager().contentsOfDirectoryAtPath("", nullptr));
}

// A lost way back up gives ENOENT too, and says nothing of the requested item.
TEST(TreeError, saysNoSuchFileOfTheRequestedItemAlone) {
  using NS::FileAccess;
  auto codeOfMissing = [](NS::TreeItem item, NS::TreeSide side, FileAccess access) {
    NS::TreeFailure failure{{NS::TreeStep::Open, ENOENT, side}, item, "/path"};
    return NS::errorOf(failure, access).code();
  };
  constexpr auto asked = NS::TreeItem::Asked, inner = NS::TreeItem::Inner;
  constexpr auto original = NS::TreeSide::Original, copy = NS::TreeSide::Copy;
  EXPECT_EQ(codeOfMissing(asked, original, FileAccess::Reading), NS::FileReadNoSuchFileError);
  EXPECT_EQ(codeOfMissing(asked, original, FileAccess::Writing), NS::FileNoSuchFileError);
  EXPECT_EQ(codeOfMissing(inner, original, FileAccess::Reading), NS::FileReadUnknownError);
  EXPECT_EQ(codeOfMissing(inner, original, FileAccess::Writing), NS::FileWriteUnknownError);
  EXPECT_EQ(codeOfMissing(inner, copy, FileAccess::Reading), NS::FileWriteUnknownError);
}

TEST(FileManager, listsURLsAndKnowsFoldersAmongThem) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  fs::create_directory_symlink("folder", scratch.path("link"));
  scratch.file(".hidden", "");
  NS::URL root = NS::URL::fileURLWithPath(scratch.path());
  auto url = [&](const char *name, bool isDirectory) {
    return NS::URL::fileURLWithPath(scratch.path(name), isDirectory);
  };
  EXPECT_THAT(*manager().contentsOfDirectoryAtURL(root, NS::DirectoryEnumerationNone, nullptr),
              UnorderedElementsAre(url("folder", true), url("link", false), url(".hidden", false)));
  EXPECT_THAT(
      *manager().contentsOfDirectoryAtURL(root, NS::DirectoryEnumerationSkipsHiddenFiles, nullptr),
      UnorderedElementsAre(url("folder", true), url("link", false)));
}

TEST(FileManager, readsAttributesOfTheItemItself) {
  ScratchFolder scratch;
  std::string file = scratch.file("file", "12345");
  fs::create_hard_link(file, scratch.path("second"));
  ASSERT_EQ(::chmod(file.c_str(), 04751), 0);
  struct timespec times[2] = {{10, 0}, {-20, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  auto attributes = manager().attributesOfItemAtPath(file, nullptr);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->type, NS::FileType::Regular);
  EXPECT_EQ(attributes->size, 5u);
  EXPECT_EQ(attributes->posixPermissions, 04751u);
  EXPECT_EQ(attributes->ownerAccountID, ::geteuid());
  EXPECT_EQ(attributes->referenceCount, 2u);
  EXPECT_EQ(attributes->modificationTime, -20);
}

TEST(FileManager, namesTheTypeOfEveryKindOfItem) {
  ScratchFolder scratch;
  fs::create_symlink("missing", scratch.path("link"));
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  auto type = [](const std::string &path) {
    auto attributes = manager().attributesOfItemAtPath(path, nullptr);
    return attributes ? std::optional(attributes->type) : std::nullopt;
  };
  EXPECT_EQ(type(scratch.path()), NS::FileType::Directory);
  EXPECT_EQ(type(scratch.path("link")), NS::FileType::SymbolicLink);
  EXPECT_EQ(type(scratch.path("fifo")), NS::FileType::Unknown);
  EXPECT_EQ(type("/dev/null"), NS::FileType::CharacterSpecial);
  ASSERT_TRUE(kwtest::makeSocket(scratch.path("socket")));
  EXPECT_EQ(type(scratch.path("socket")), NS::FileType::Socket);
  if (kwtest::makeBlockDevice(scratch.path("device"))) {
    EXPECT_EQ(type(scratch.path("device")), NS::FileType::BlockSpecial);
  }
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().attributesOfItemAtPath(scratch.path("missing"), &error));
  EXPECT_EQ(codeOf(error), NS::FileReadNoSuchFileError);
}

TEST(FileManager, readsWhereALinkLeads) {
  ScratchFolder scratch;
  std::string far(3000, 'x');
  fs::create_symlink(far, scratch.path("link"));
  EXPECT_EQ(manager().destinationOfSymbolicLinkAtPath(scratch.path("link"), nullptr), far);
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().destinationOfSymbolicLinkAtPath(scratch.path("missing"), &error));
  EXPECT_EQ(codeOf(error), NS::FileReadNoSuchFileError);
  EXPECT_FALSE(manager().destinationOfSymbolicLinkAtPath(scratch.file("file", ""), &error));
  EXPECT_EQ(error->underlyingError()->code(), EINVAL);
}

TEST(FileManager, makesOneFolder) {
  ScratchFolder scratch;
  std::optional<NS::Error> error;
  EXPECT_TRUE(manager().createDirectoryAtPath(scratch.path("new"), false, &error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(manager().createDirectoryAtPath(scratch.path("new"), false, &error));
  EXPECT_EQ(codeOf(error), NS::FileWriteFileExistsError);
  EXPECT_FALSE(manager().createDirectoryAtPath(scratch.path("a/b"), false, &error));
  EXPECT_EQ(codeOf(error), NS::FileNoSuchFileError);
}

TEST(FileManager, makesAllMissingFoldersOnTheWay) {
  ScratchFolder scratch;
  std::optional<NS::Error> error;
  EXPECT_TRUE(manager().createDirectoryAtPath(scratch.path("a//b/./c/"), true, &error));
  EXPECT_TRUE(fs::is_directory(scratch.path("a/b/c")));
  EXPECT_TRUE(manager().createDirectoryAtPath(scratch.path("a/b/c"), true, &error));
  EXPECT_TRUE(
      manager().createDirectoryAtURL(NS::URL::fileURLWithPath(scratch.path("u/v")), true, &error));
  EXPECT_TRUE(manager().createDirectoryAtPath("/", true, &error));
  EXPECT_FALSE(error);
}

TEST(FileManager, makesTheFoldersOfAPathFromTheWorkingFolder) {
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (::chdir(scratch.path().c_str()) != 0)
                return "not in the folder";
              return manager().createDirectoryAtPath("a/b/c", true, nullptr) ? "" : "not made";
            }),
            "");
  EXPECT_TRUE(fs::is_directory(scratch.path("a/b/c")));
}

TEST(FileManager, doesNotMakeAFolderBelowOrInPlaceOfAFile) {
  ScratchFolder scratch;
  scratch.file("file", "");
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().createDirectoryAtPath(scratch.path("file"), true, &error));
  EXPECT_EQ(codeOf(error), NS::FileWriteFileExistsError);
  EXPECT_FALSE(manager().createDirectoryAtPath(scratch.path("file/a"), true, &error));
  EXPECT_NE(codeOf(error), 0);
  EXPECT_FALSE(manager().createDirectoryAtPath("", true, &error));
  EXPECT_EQ(codeOf(error), NS::FileNoSuchFileError);
}

} // namespace
