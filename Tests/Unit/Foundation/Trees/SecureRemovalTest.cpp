// Overwriting before unlinking, watched through descriptors and second names.
#include "Foundation/Trees/SecureRemoval.h"

#include "Support/LockedItem.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kwtest::LockedItem;
using kwtest::ScratchFolder;

constexpr std::uint32_t recursiveOnePass =
    NS::REMOVEFILE_RECURSIVE_FLAG | NS::REMOVEFILE_SECURE_1_PASS_FLAG;

// 0, or the errno value.
int removeSecurely(const std::string &path, std::uint32_t flags = recursiveOnePass) {
  return NS::SecureRemoval::shared().removefile(path, flags) == 0 ? 0 : errno;
}

// Keeps a removed file's content in sight.
class Witness {
public:
  explicit Witness(const std::string &path) : descriptor_(::open(path.c_str(), O_RDONLY)) {}
  ~Witness() { ::close(descriptor_); }
  Witness(const Witness &) = delete;
  Witness &operator=(const Witness &) = delete;

  std::string content() const {
    std::string text(
        status().st_size > 1'000'000'000 ? 0 : static_cast<std::size_t>(status().st_size), '\0');
    EXPECT_EQ(::pread(descriptor_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }
  struct stat status() const {
    struct stat status;
    EXPECT_EQ(::fstat(descriptor_, &status), 0);
    return status;
  }

private:
  int descriptor_;
};

TEST(SecureRemoval, overwritesAFileInPlaceBeforeItGoes) {
  ScratchFolder scratch;
  std::string secret;
  while (secret.size() < 3'000'001)
    secret += "the secret, ";
  Witness witness(scratch.file("file", secret));
  EXPECT_EQ(removeSecurely(scratch.path("file")), 0);
  EXPECT_EQ(witness.status().st_nlink, 0u);
  std::string left = witness.content();
  EXPECT_EQ(left.size(), secret.size());
  EXPECT_EQ(left.find("secret"), std::string::npos);
}

// Of eight random bytes hardly all are zero.
TEST(SecureRemoval, overwritesEachByteWithNoise) {
  std::string seen(1'100'000, '\0');
  for (int removal = 0; removal < 8; ++removal) {
    ScratchFolder scratch;
    Witness witness(scratch.file("file", std::string(seen.size(), '\0')));
    EXPECT_EQ(removeSecurely(scratch.path("file")), 0);
    std::string left = witness.content();
    ASSERT_EQ(left.size(), seen.size());
    for (std::size_t at = 0; at < seen.size(); ++at)
      seen[at] = static_cast<char>(seen[at] | left[at]);
  }
  EXPECT_EQ(seen.find('\0'), std::string::npos);
}

TEST(SecureRemoval, overwritesNothingWithoutTheFlag) {
  ScratchFolder scratch;
  Witness witness(scratch.file("file", "content"));
  EXPECT_EQ(removeSecurely(scratch.path("file"), NS::REMOVEFILE_RECURSIVE_FLAG), 0);
  EXPECT_EQ(witness.content(), "content");
}

TEST(SecureRemoval, takesTheContentFromAllNamesOfAFile) {
  ScratchFolder scratch;
  scratch.file("file", "content");
  fs::create_hard_link(scratch.path("file"), scratch.path("second"));
  EXPECT_EQ(removeSecurely(scratch.path("file")), 0);
  EXPECT_EQ(scratch.content("second").size(), 7u);
  EXPECT_NE(scratch.content("second"), "content");
}

TEST(SecureRemoval, leavesHolesAlone) {
  ScratchFolder scratch;
  std::string path = scratch.file("sparse", "begin");
  fs::resize_file(path, 8ull << 30);
  Witness witness(path);
  EXPECT_EQ(removeSecurely(path), 0);
  EXPECT_LT(witness.status().st_blocks, 64);
}

// After a hole at the end of a file as well.
TEST(SecureRemoval, overwritesFilesAmongSparseOnes) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  std::deque<Witness> plain, sparse;
  for (int number = 0; number < 4; ++number) {
    std::string name = "root/" + std::to_string(number);
    sparse.emplace_back(scratch.file(name + " sparse", "begin"));
    fs::resize_file(scratch.path(name + " sparse"), 1 << 20);
    plain.emplace_back(scratch.file(name, "secret"));
  }
  EXPECT_EQ(removeSecurely(scratch.path("root")), 0);
  for (const Witness &witness : plain)
    EXPECT_NE(witness.content(), "secret");
  for (const Witness &witness : sparse)
    EXPECT_FALSE(witness.content().starts_with("begin"));
}

TEST(SecureRemoval, overwritesAFileOnAVolumeThatCannotTellItsHoles) {
  ScratchFolder scratch;
  std::string text = "the beginning, the middle and the end";
  Witness witness(scratch.file("file", text));
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_lseek, EINVAL))
                return "the call cannot be taken away";
              int error = removeSecurely(scratch.path("file"));
              return error == 0 ? "" : std::to_string(error);
            }),
            "");
  std::string left = witness.content();
  EXPECT_EQ(left.size(), text.size());
  for (const char *part : {"beginning", "middle", "end"})
    EXPECT_EQ(left.find(part), std::string::npos) << part;
}

TEST(SecureRemoval, keepsAFileWhoseNewDataDoNotReachTheDisk) {
  ScratchFolder scratch;
  std::string full = scratch.file("full", "s"), empty = scratch.file("empty", "");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_fdatasync, EIO))
                return "the call cannot be taken away";
              if (int error = removeSecurely(full); error != EIO)
                return std::to_string(error);
              return removeSecurely(empty) == 0 ? "" : "an empty file has no data";
            }),
            "");
  EXPECT_TRUE(fs::exists(full));
  EXPECT_FALSE(fs::exists(empty));
}

// Removes "root" with the file "root/file". Another process does something just
// before each look at the file by its name, and each time before the file is opened
// to be overwritten. Returns the failure, or an empty text.
std::string removeWhile(const ScratchFolder &scratch,
                        const std::function<void(bool isOpening)> &beforeCall) {
  return kwtest::inForkedChild([&]() -> std::string {
    if (!kwtest::beforeCalls({SYS_openat, SYS_newfstatat}, [&](const kwtest::CallArguments &call) {
          bool isOpening = call.isOf(SYS_openat);
          if (call.text(1) == "file" && (!isOpening || call[2] & O_WRONLY))
            beforeCall(isOpening);
        }))
      return "the calls cannot be watched";
    int error = removeSecurely(scratch.path("root"));
    return error == 0 ? "" : std::to_string(error);
  });
}

TEST(SecureRemoval, removesTheItemThatAFileIsExchangedFor) {
  using Path = const std::string &;
  std::map<std::string, std::function<void(Path)>> makers = {
      {"a link", [](Path path) { fs::create_symlink("../outside", path); }},
      {"a pipe", [](Path path) { ::mkfifo(path.c_str(), 0600); }},
      {"a folder", [](Path path) { fs::create_directory(path); }},
  };
  for (const auto &[kind, make] : makers) {
    ScratchFolder scratch;
    fs::create_directory(scratch.path("root"));
    scratch.file("root/file", "moved");
    scratch.file("outside", "kept");
    EXPECT_EQ(removeWhile(scratch,
                          [&, &makeOther = make](bool isOpening) {
                            if (!isOpening || fs::exists(scratch.path("moved")))
                              return;
                            fs::rename(scratch.path("root/file"), scratch.path("moved"));
                            makeOther(scratch.path("root/file"));
                          }),
              "")
        << kind;
    EXPECT_FALSE(fs::exists(scratch.path("root"))) << kind;
    EXPECT_EQ(scratch.content("moved"), "moved") << kind;
    EXPECT_EQ(scratch.content("outside"), "kept") << kind;
  }
}

TEST(SecureRemoval, overwritesNoFileThatTakesAnothersPlaceForAMoment) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  Witness witness(scratch.file("root/file", "secret"));
  scratch.file("outside", "kept");
  auto exchange = [&] {
    ::renameat2(AT_FDCWD, scratch.path("outside").c_str(), AT_FDCWD,
                scratch.path("root/file").c_str(), RENAME_EXCHANGE);
  };
  int exchanges = 0;
  EXPECT_EQ(removeWhile(scratch,
                        [&](bool isOpening) {
                          // There when it is opened, and back at the next look.
                          if (exchanges == (isOpening ? 0 : 1)) {
                            exchange();
                            ++exchanges;
                          }
                        }),
            "");
  EXPECT_EQ(scratch.content("outside"), "kept");
  EXPECT_NE(witness.content(), "secret");
  EXPECT_EQ(witness.status().st_nlink, 0u);
}

TEST(SecureRemoval, onlyUnlinksItemsOtherThanFiles) {
  ScratchFolder scratch;
  scratch.file("outside", "kept");
  fs::create_directory(scratch.path("root"));
  fs::create_symlink("../outside", scratch.path("root/link"));
  ASSERT_EQ(::mkfifo(scratch.path("root/fifo").c_str(), 0600), 0);
  EXPECT_EQ(removeSecurely(scratch.path("root")), 0);
  EXPECT_FALSE(fs::exists(scratch.path("root")));
  EXPECT_EQ(scratch.content("outside"), "kept");
  fs::create_symlink("outside", scratch.path("link"));
  EXPECT_EQ(removeSecurely(scratch.path("link")), 0);
  EXPECT_EQ(scratch.content("outside"), "kept");
}

TEST(SecureRemoval, removesEveryKindOfItem) {
  ScratchFolder scratch;
  std::string root = scratch.path("root");
  fs::create_directory(root);
  kwtest::RandomTree tree(root, 3, 200);
  std::size_t before = kwtest::openDescriptorCount();
  EXPECT_EQ(removeSecurely(root), 0);
  EXPECT_TRUE(fs::is_empty(scratch.path()));
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(SecureRemoval, failsWithTheReason) {
  ScratchFolder scratch;
  EXPECT_EQ(removeSecurely(scratch.path("missing")), ENOENT);
  EXPECT_EQ(removeSecurely(""), ENOENT);
  EXPECT_EQ(removeSecurely("/"), EBUSY);
  EXPECT_EQ(removeSecurely(scratch.path("..")), EINVAL);
  EXPECT_EQ(removeSecurely(scratch.file("file", "") + std::string("\0", 1)), EINVAL);
  EXPECT_TRUE(fs::exists(scratch.path("file")));
}

TEST(SecureRemoval, withoutRecursionRemovesOnlyAnEmptyFolder) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("full/empty"));
  EXPECT_EQ(removeSecurely(scratch.path("full"), NS::REMOVEFILE_SECURE_1_PASS_FLAG), ENOTEMPTY);
  EXPECT_EQ(removeSecurely(scratch.path("full/empty"), NS::REMOVEFILE_SECURE_1_PASS_FLAG), 0);
  EXPECT_FALSE(fs::exists(scratch.path("full/empty")));
}

TEST(SecureRemoval, failsAtALockedFileAndLeavesItWhole) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  LockedItem locked(scratch.file("root/locked", "kept"));
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(removeSecurely(scratch.path("root")), EPERM);
  EXPECT_EQ(scratch.content("root/locked"), "kept");
}

TEST(SecureRemoval, staysOffMountedVolumes) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              fs::create_directories(scratch.path("root/mounted"));
              if (!kwtest::mountMemory(scratch.path("root/mounted")))
                return "no mount";
              scratch.file("root/mounted/file", "kept");
              if (removeSecurely(scratch.path("root")) != EBUSY)
                return "another error";
              return scratch.content("root/mounted/file") == "kept" ? "" : "overwritten";
            }),
            "");
}

} // namespace
