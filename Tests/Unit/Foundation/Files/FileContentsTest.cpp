// Reading and writing of whole files, and above all the leftovers of a failed
// replacement.
#include "Foundation/Files/FileContents.h"

#include "Support/AccessList.h"
#include "Support/ForkedChild.h"
#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"
#include "Support/WaitingWriter.h"
#include "Support/WatchedCalls.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Files/POSIX/TemporaryNames.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

NS::FileContents &files() {
  return NS::FileContents::shared();
}

class FileContentsTest : public testing::Test {
protected:
  std::size_t entryCount() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(scratch.path()))
      ++count;
    return count;
  }

  kwtest::ScratchFolder scratch;
  std::optional<NS::Error> error;
};

TEST_F(FileContentsTest, areReadWhole) {
  std::string content(200'000, 'x');
  content += '\0';
  errno = EIO; // of an earlier call
  EXPECT_EQ(files().dataWithContentsOfFile(scratch.file("a", content), &error), content);
  EXPECT_EQ(files().dataWithContentsOfFile(scratch.file("b", ""), &error), "");
  EXPECT_FALSE(error);
}

TEST_F(FileContentsTest, ofAMissingFileAreNothing) {
  EXPECT_EQ(files().dataWithContentsOfFile(scratch.path("a"), &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), NS::FileReadNoSuchFileError);
}

TEST_F(FileContentsTest, ofAFolderAFIFOAndADeviceAreNothing) {
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  for (const std::string &path : {scratch.path(), scratch.path("fifo"), std::string("/dev/zero")}) {
    error.reset();
    EXPECT_EQ(files().dataWithContentsOfFile(path, &error), std::nullopt) << path;
    EXPECT_TRUE(error) << path;
  }
}

TEST_F(FileContentsTest, areNotAskedForByWakingTheWriterOfAFIFO) {
  kwtest::WaitingWriter writer(scratch.path("fifo"));
  EXPECT_EQ(files().dataWithContentsOfFile(scratch.path("fifo"), &error), std::nullopt);
  EXPECT_TRUE(error);
  EXPECT_TRUE(writer.isWaiting());
}

TEST_F(FileContentsTest, beyondTheLimitAreTooLarge) {
  std::string path = scratch.file("a", "");
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(NS::FileContents::sizeLimit)), 0);
  EXPECT_TRUE(files().dataWithContentsOfFile(path, nullptr));
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(NS::FileContents::sizeLimit) + 1), 0);
  EXPECT_FALSE(files().dataWithContentsOfFile(path, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), NS::FileReadTooLargeError);
}

TEST_F(FileContentsTest, asTextMustBeUTF8) {
  EXPECT_EQ(files().stringWithContentsOfFile(scratch.file("a", "gr\xc3\xbc\xc3\x9f"), &error),
            "gr\xc3\xbc\xc3\x9f");
  EXPECT_FALSE(error);
  for (const char *bytes :
       {"\xff", "\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe0\x80\x80", "a\x80"}) {
    error.reset();
    EXPECT_EQ(files().stringWithContentsOfFile(scratch.file("b", bytes), &error), std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NS::FileReadCorruptFileError);
    EXPECT_EQ(std::get<std::string>(error->userInfo().at("NSFilePath")), scratch.path("b"));
  }
}

TEST_F(FileContentsTest, areReplacedWithModeAndOwnerKept) {
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  bool isRoot = ::geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
  }
  errno = EIO; // of an earlier call
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_FALSE(error);
  EXPECT_EQ(scratch.content("a"), "new");
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(status.st_uid, isRoot ? 1234 : ::geteuid());
  EXPECT_EQ(status.st_gid, isRoot ? 5678 : ::getegid());
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, ofANewFileFollowTheMask) {
  mode_t mask = ::umask(027);
  EXPECT_TRUE(files().writeToFileAtomically(scratch.path("a"), "", &error));
  ::umask(mask);
  struct stat status;
  ASSERT_EQ(::stat(scratch.path("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(FileContentsTest, replaceALinkAndLeaveItsTarget) {
  std::string target = scratch.file("target", "old");
  std::filesystem::create_symlink(target, scratch.path("link"));
  EXPECT_TRUE(files().writeToFileAtomically(scratch.path("link"), "new", &error));
  EXPECT_EQ(scratch.content("target"), "old");
  EXPECT_EQ(scratch.content("link"), "new");
  EXPECT_FALSE(std::filesystem::is_symlink(scratch.path("link")));
}

TEST_F(FileContentsTest, replaceAFIFOWithoutWakingItsWriter) {
  kwtest::WaitingWriter writer(scratch.path("fifo"));
  std::filesystem::create_hard_link(scratch.path("fifo"), scratch.path("a"));
  EXPECT_TRUE(files().writeToFileAtomically(scratch.path("a"), "new", &error));
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_TRUE(writer.isWaiting());
}

// Its mode is that of a new file then.
TEST_F(FileContentsTest, takeOverNothingFromAFIFOThatTakesTheirPlace) {
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              ::umask(022);
              if (!kwtest::beforeCalls(SYS_openat, [&](const kwtest::CallArguments &call) {
                    if (call.text(1) == "a")
                      ::rename(scratch.path("fifo").c_str(), path.c_str());
                  }))
                return "the calls cannot be watched";
              return files().writeToFileAtomically(path, "new", nullptr) ? "" : "not replaced";
            }),
            "");
  EXPECT_EQ(scratch.content("a"), "new");
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
  EXPECT_EQ(entryCount(), 1u);
}

// They have attributes that the new file could not take over.
TEST_F(FileContentsTest, thatCannotBeReadAreNotReplaced) {
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0777), 0);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              return files().writeToFileAtomically(path, "new", nullptr) ? "replaced" : "";
            }),
            "");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(scratch.content("a"), "old");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, stayAsTheyWereWhenTheDiskFails) {
  std::string path = scratch.file("a", "old");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_fsync, EIO))
                return "the call still works";
              return files().writeToFileAtomically(path, "new", nullptr) ? "replaced" : "";
            }),
            "");
  EXPECT_EQ(scratch.content("a"), "old");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, tellOfAttributesThatTheReplacementDoesWithout) {
  std::string path = scratch.file("a", "old");
  KW_REQUIRE_ATTRIBUTE(path, "user.note", "x");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_setxattr, EPERM))
                return "the call still works";
              kwtest::LogRecorder log;
              if (!files().writeToFileAtomically(path, "new", nullptr))
                return "not replaced";
              return log.lines().size() == 1 ? log.lines()[0] : "not one line";
            }),
            "a does without what its volume cannot hold: the attribute user.note (error 1), 1 in "
            "all");
}

TEST_F(FileContentsTest, cannotReplaceAFolderNorBeInAMissingOne) {
  std::filesystem::create_directory(scratch.path("folder"));
  for (const std::string &path : {scratch.path("folder"), scratch.path("no/file")}) {
    error.reset();
    EXPECT_FALSE(files().writeToFileAtomically(path, "new", &error)) << path;
    EXPECT_TRUE(error) << path;
  }
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, cannotBeWrittenAtAPathWithoutANameForThem) {
  for (const std::string &path : {std::string(""), std::string("/"), std::string("."),
                                  scratch.path(".."), scratch.path(".")}) {
    error.reset();
    EXPECT_FALSE(files().writeToFileAtomically(path, "new", &error)) << path;
    ASSERT_TRUE(error) << path;
    EXPECT_EQ(NS::errnoBeneath(*error), EINVAL) << path;
  }
  EXPECT_EQ(entryCount(), 0u);
}

TEST_F(FileContentsTest, areReplacedWithAccessListAndAttributesKept) {
  std::string path = scratch.file("a", "old");
  // The owning group may do nothing; its bits of the mode are the list's mask.
  std::string list = kwtest::accessListOf(
      {{ACL_USER_OBJ, 6}, {ACL_USER, 6, 1234}, {ACL_GROUP_OBJ, 0}, {ACL_MASK, 6}, {ACL_OTHER, 0}});
  KW_REQUIRE_ATTRIBUTE(path, kwtest::accessListName, list);
  KW_REQUIRE_ATTRIBUTE(path, "user.note", "kept");
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_EQ(kwtest::attribute(path, kwtest::accessListName), list);
  EXPECT_EQ(kwtest::attribute(path, "user.note"), "kept");
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
}

TEST_F(FileContentsTest, areReplacedWithoutTheListThatTheFolderHandsDown) {
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  KW_REQUIRE_ATTRIBUTE(scratch.path(), kwtest::defaultListName,
                       kwtest::accessListOf({{ACL_USER_OBJ, 6},
                                             {ACL_USER, 6, 1234},
                                             {ACL_GROUP_OBJ, 6},
                                             {ACL_MASK, 6},
                                             {ACL_OTHER, 0}}));
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_EQ(kwtest::attribute(path, kwtest::accessListName), "");
}

// The signal of that limit ends the process in the middle of its write.
TEST_F(FileContentsTest, ofAnotherUserClearTheLeftoverOfAKilledReplacement) {
  KW_REQUIRE_ROOT();
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              std::signal(SIGXFSZ, SIG_DFL);
              rlimit limit{4096, 4096};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              files().writeToFileAtomically(path, std::string(100'000, 'x'), nullptr);
              return "written";
            }),
            "ended by signal " + std::to_string(SIGXFSZ));
  ASSERT_EQ(entryCount(), 2u);
  struct stat left;
  ASSERT_EQ(::stat(scratch.path(".keepwell-new-00").c_str(), &left), 0);
  EXPECT_EQ(left.st_uid, ::geteuid()) << "the other user gets nothing unfinished";
  // One that had its owner already when it was killed.
  ASSERT_EQ(::chown(scratch.file(".keepwell-new-01", "x").c_str(), 1234, 5678), 0);
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, leaveAFileOfTheirNamesToAThirdUser) {
  KW_REQUIRE_ROOT();
  std::string path = scratch.file("a", "old");
  ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
  ASSERT_EQ(::chown(scratch.file(".keepwell-new-00", "x").c_str(), 4321, 5678), 0);
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_EQ(scratch.content(".keepwell-new-00"), "x");
}

// Replaces the file in a child; the hook runs before each lock and sync.
template <typename Hook> std::string failureOfReplacing(const std::string &path, Hook hook) {
  return kwtest::inForkedChild([&]() -> std::string {
    if (!kwtest::beforeCalls({SYS_flock, SYS_fsync}, hook))
      return "the calls cannot be watched";
    return files().writeToFileAtomically(path, "new", nullptr) ? "" : "not replaced";
  });
}

TEST_F(FileContentsTest, areReplacedThoughAnotherRemovesTheNewFileBeforeItIsLocked) {
  std::string path = scratch.file("a", "old"), fresh = scratch.path(".keepwell-new-00");
  EXPECT_EQ(failureOfReplacing(path, [&](const auto &) { ::unlink(fresh.c_str()); }), "");
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, areReplacedThoughAnotherLocksTheNewFileAndRemovesIt) {
  std::string path = scratch.file("a", "old"), fresh = scratch.path(".keepwell-new-00");
  int other = -1;
  EXPECT_EQ(failureOfReplacing(path,
                               [&](const kwtest::CallArguments &call) {
                                 if (other < 0)
                                   ::flock(other = ::open(fresh.c_str(), O_RDONLY), LOCK_EX);
                                 else if (call.isOf(SYS_fsync))
                                   ::unlink(fresh.c_str());
                               }),
            "");
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, areReplacedThoughAllTheirNumberedNamesAreTaken) {
  std::string path = scratch.file("a", "old");
  for (unsigned slot = 0; slot < NS::temporarySlots; ++slot)
    std::filesystem::create_directory(scratch.path(NS::temporaryName(".keepwell-new-", slot)));
  EXPECT_TRUE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_EQ(scratch.content("a"), "new");
  EXPECT_EQ(entryCount(), NS::temporarySlots + 1);
}

TEST_F(FileContentsTest, atAPathThatWouldBeCutShortAreAnError) {
  std::string path = scratch.file("a", "old") + std::string("\0x", 2);
  EXPECT_EQ(files().dataWithContentsOfFile(path, &error), std::nullopt);
  EXPECT_TRUE(error);
  error.reset();
  EXPECT_FALSE(files().writeToFileAtomically(path, "new", &error));
  EXPECT_TRUE(error);
  EXPECT_EQ(scratch.content("a"), "old");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, tellALimitOfThisProcessFromAFaultOfTheFile) {
  std::string path = scratch.file("a", "");
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(NS::FileContents::sizeLimit) + 1), 0);
  EXPECT_FALSE(files().stringWithContentsOfFile(path, &error));
  EXPECT_TRUE(error && NS::isLimitOfThisProcess(*error));
  for (const std::string &other :
       {scratch.file("b", "\xff"), scratch.path(), scratch.path("missing")}) {
    EXPECT_FALSE(files().stringWithContentsOfFile(other, &error));
    EXPECT_TRUE(error && !NS::isLimitOfThisProcess(*error)) << other;
  }
}

// The limit on a file's size stops the write midway, as a full disk does.
TEST_F(FileContentsTest, staysAsTheyWereWhenTheWriteStopsMidway) {
  std::string path = scratch.file("a", "old");
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{4096, 4096};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
      ::_exit(2);
    std::optional<NS::Error> failure;
    bool written = files().writeToFileAtomically(path, std::string(100'000, 'x'), &failure);
    ::_exit(!written && failure && failure->code() == NS::FileWriteOutOfSpaceError ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(scratch.content("a"), "old");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(FileContentsTest, replacedBySeveralAtOnceAreThoseOfOneOfThem) {
  std::string path = scratch.file("shared", "");
  std::atomic<int> failures = 0;
  std::vector<std::thread> writers;
  for (char letter = 'a'; letter < 'i'; ++letter)
    writers.emplace_back([&, letter] {
      for (int round = 0; round < 200; ++round)
        if (!files().writeToFileAtomically(path, std::string(100, letter), nullptr))
          ++failures;
    });
  for (std::thread &writer : writers)
    writer.join();
  EXPECT_EQ(failures, 0);
  auto content = files().dataWithContentsOfFile(path, &error);
  ASSERT_TRUE(content && content->size() == 100);
  EXPECT_EQ(*content, std::string(100, content->front()));
  EXPECT_EQ(entryCount(), 1U);
}

TEST_F(FileContentsTest, leakNoDescriptor) {
  std::size_t before = kwtest::openDescriptorCount();
  std::filesystem::create_directory(scratch.path("folder"));
  for (int round = 0; round < 5; ++round) {
    EXPECT_TRUE(files().writeToFileAtomically(scratch.path("a"), "x", nullptr));
    EXPECT_FALSE(files().writeToFileAtomically(scratch.path("folder"), "x", nullptr));
    EXPECT_TRUE(files().dataWithContentsOfFile(scratch.path("a"), nullptr));
    EXPECT_FALSE(files().dataWithContentsOfFile(scratch.path(), nullptr));
  }
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

} // namespace
