// The reasons that the command finds by its own look at an item.
#include "CommandLine/Look.h"

#include "Support/FakeFileFlags.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using kw::Presence;
using Reason = std::optional<std::string>;

class Look : public testing::Test {
protected:
  Look() {
    scratch.file("file", "");
    fs::create_directory(scratch.path("folder"));
    fs::create_symlink("missing", scratch.path("dangling"));
    fs::create_symlink("file", scratch.path("link"));
    EXPECT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  }
  std::string path(const char *name) const { return scratch.path(name); }

  kwtest::ScratchFolder scratch;
};

TEST_F(Look, tellsWhetherAnItemIsThere) {
  for (const char *name : {"file", "folder", "link", "dangling", "fifo"})
    EXPECT_EQ(kw::presenceOf(path(name)), Presence::There) << name;
  EXPECT_EQ(kw::presenceOf(path("missing")), Presence::Missing);
  EXPECT_EQ(kw::presenceOf(path("file/inner")), Presence::Missing);
}

TEST_F(Look, tellsWhyAnItemCannotBeRead) {
  EXPECT_EQ(kw::obstacleToReading(path("file")), std::nullopt);
  EXPECT_EQ(kw::obstacleToReading(path("folder")), std::nullopt);
  for (const char *name : {"missing", "dangling"})
    EXPECT_EQ(kw::obstacleToReading(path(name)), Reason("No such file or directory")) << name;
}

TEST_F(Look, tellsThatAnItemIsNotForThisUser) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(path("file"), fs::perms::none);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              return kw::obstacleToReading(path("file")).value_or("none");
            }),
            "Permission denied");
}

TEST_F(Look, tellsWhyAnItemCannotBeChanged) {
  for (const char *name : {"file", "folder", "link", "dangling", "fifo"})
    EXPECT_EQ(kw::obstacleToWriting(path(name)), std::nullopt) << name;
  EXPECT_EQ(kw::obstacleToWriting(path("missing")), Reason("No such file or directory"));
}

TEST_F(Look, tellsThatAnItemIsLocked) {
  Reason locked("Operation not permitted (the item is locked)");
  kwtest::FakeFileFlags flags;
  for (std::uint32_t lock :
       {NS::UF_IMMUTABLE_FLAG, NS::SF_IMMUTABLE_FLAG, NS::UF_APPEND_FLAG, NS::SF_APPEND_FLAG}) {
    flags.flags[path("file")] = lock;
    EXPECT_EQ(kw::obstacleToWriting(path("file")), locked) << lock;
    EXPECT_EQ(kw::obstacleToTruncation(path("file")), locked) << lock;
  }
  flags.flags[path("file")] = -1; // they cannot be read
  EXPECT_EQ(kw::obstacleToWriting(path("file")), std::nullopt);
}

TEST_F(Look, tellsWhyAFileCannotBeTruncated) {
  for (const char *name : {"file", "link"})
    EXPECT_EQ(kw::obstacleToTruncation(path(name)), std::nullopt) << name;
  EXPECT_EQ(kw::obstacleToTruncation(path("folder")), Reason("Is a directory"));
  EXPECT_EQ(kw::obstacleToTruncation(path("fifo")), Reason("it is not a regular file"));
  for (const char *name : {"missing", "dangling"})
    EXPECT_EQ(kw::obstacleToTruncation(path(name)), Reason("No such file or directory")) << name;
}

} // namespace
