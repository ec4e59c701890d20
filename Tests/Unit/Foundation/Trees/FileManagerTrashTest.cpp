// The Trash of a home folder of the test's own, in a process of its own: the
// library below reads the environment once.
#include "Foundation/Trees/FileManager.h"

#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;

bool trash(const std::string &path, NS::ErrorSlot error) {
  return NS::FileManager::defaultManager().trashItemAtURL(NS::URL::fileURLWithPath(path), error);
}

// The code of the error, 0 for success.
std::int64_t trashCode(const std::string &path) {
  std::optional<NS::Error> error;
  if (trash(path, &error))
    return 0;
  return error ? error->code() : -1;
}

template <typename Body> std::string withOwnHome(const ScratchFolder &scratch, Body body) {
  return kwtest::withPrivateMounts([&]() -> std::string {
    ::setenv("HOME", scratch.path("home").c_str(), 1);
    ::unsetenv("XDG_DATA_HOME");
    fs::create_directory(scratch.path("home"));
    return body();
  });
}

TEST(TrashItem, putsItemsInTheHomeFoldersTrash) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(withOwnHome(scratch,
                        [&]() -> std::string {
                          fs::create_directory(scratch.path("folder"));
                          fs::create_symlink("missing", scratch.path("link"));
                          for (const std::string &path :
                               {scratch.file("file", "content"), scratch.path("folder"),
                                scratch.path("link")}) {
                            std::optional<NS::Error> error;
                            if (!trash(path, &error))
                              return error->description();
                            if (fs::exists(fs::symlink_status(path)))
                              return path + " is still there";
                          }
                          return "";
                        }),
            "");
  std::string files = "home/.local/share/Trash/files/";
  EXPECT_EQ(scratch.content(files + "file"), "content");
  EXPECT_TRUE(fs::is_directory(scratch.path(files + "folder")));
  EXPECT_EQ(fs::read_symlink(scratch.path(files + "link")), "missing");
  EXPECT_TRUE(fs::exists(scratch.path("home/.local/share/Trash/info/file.trashinfo")));
}

// By its text "link/../item" is the item beside the link.
TEST(TrashItem, takesTheItemThatThePathLeadsToThroughALink) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("real/sub"));
  fs::create_directory_symlink("real/sub", scratch.path("link"));
  scratch.file("item", "beside the link");
  scratch.file("real/item", "meant");
  EXPECT_EQ(withOwnHome(scratch,
                        [&]() -> std::string {
                          std::optional<NS::Error> error;
                          return trash(scratch.path("link/../item"), &error) ? ""
                                                                             : error->description();
                        }),
            "");
  EXPECT_EQ(scratch.content("item"), "beside the link");
  EXPECT_FALSE(fs::exists(scratch.path("real/item")));
  EXPECT_EQ(scratch.content("home/.local/share/Trash/files/item"), "meant");
  EXPECT_THAT(scratch.content("home/.local/share/Trash/info/item.trashinfo"),
              testing::HasSubstr("Path=" + scratch.path("real/item") + "\n"));
}

TEST(TrashItem, keepsItemsOfOneNameApart) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(withOwnHome(scratch,
                        [&]() -> std::string {
                          for (const char *content : {"one", "two"})
                            if (trashCode(scratch.file("file", content)) != 0)
                              return content;
                          return "";
                        }),
            "");
  auto files = fs::directory_iterator(scratch.path("home/.local/share/Trash/files"));
  EXPECT_EQ(std::distance(files, {}), 2);
}

TEST(TrashItem, reportsWhyItCannot) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  kwtest::LockedItem locked(scratch.file("locked", ""));
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(withOwnHome(scratch,
                        [&]() -> std::string {
                          std::optional<NS::Error> error;
                          if (trash(scratch.path("missing"), &error) ||
                              error->code() != NS::FileNoSuchFileError ||
                              std::get<std::string>(error->userInfo().at("NSFilePath")) !=
                                  scratch.path("missing"))
                            return "missing: " + error->description();
                          for (const char *path : {"/", "/etc/.", "/etc/.."})
                            if (trashCode(path) == 0)
                              return path;
                          if (trashCode("") != NS::FileNoSuchFileError)
                            return "an empty path";
                          if (trashCode(scratch.path("locked")) == 0)
                            return "a locked file";
                          fs::create_directory(scratch.path("other"));
                          if (!kwtest::mountMemory(scratch.path("other")))
                            return "no mount";
                          scratch.file("other/file", "kept");
                          std::int64_t code = trashCode(scratch.path("other/file"));
                          if (code != NS::FeatureUnsupportedError)
                            return "in memory: " + std::to_string(code);
                          return scratch.content("other/file") == "kept" ? "" : "gone";
                        }),
            "");
  EXPECT_TRUE(fs::exists(scratch.path("locked")));
}

} // namespace
