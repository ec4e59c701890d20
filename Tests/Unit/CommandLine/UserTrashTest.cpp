// The descriptions in a Trash, and the folders that are trusted.
#include "CommandLine/UserTrash.h"

#include "Support/AnsweredCommand.h"
#include "Support/FakeFTS.h"
#include "Support/ForkedChild.h"
#include "Support/PrivateMounts.h"
#include "Support/ScopedVariable.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kw::itemFromDescription;
using kwtest::Strings;

TEST(TrashDescription, tellsAnItemsFormerPlaceAndItsTime) {
  auto item = itemFromDescription("[Trash Info]\nPath=/srv/a%20b%0A\nDeletionDate="
                                  "1970-01-02T12:00:00\n",
                                  "/top");
  ASSERT_TRUE(item);
  EXPECT_EQ(item->path, "/srv/a b\n");
  ASSERT_TRUE(item->deleted);
  EXPECT_NEAR(static_cast<double>(*item->deleted), 36 * 3600, 14 * 3600) << "local time";
}

TEST(TrashDescription, hasPathsOfItsVolumeAndAnyBytes) {
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=a/b\n", "/mnt")->path, "/mnt/a/b");
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=a\n", "/")->path, "/a");
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=/%ff%FE%\n", "/")->path, "/\xff\xfe%");
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=/%2\n", "/")->path, "/%2");
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=/%39%9a%g0%0g%%41\n", "/")->path,
            "/9\x9a%g0%0g%A");
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=/a%20", "/")->path, "/a ") << "no line end";
  EXPECT_EQ(itemFromDescription("[Trash Info]\nPath=/a\nDeletionDate=soon\n", "/")->deleted,
            std::nullopt);
}

TEST(TrashDescription, endsWithItsText) {
  std::string_view more("[Trash Info]\nPath=/%20");
  EXPECT_EQ(itemFromDescription(more.substr(0, more.size() - 1), "/")->path, "/%2");
}

TEST(TrashDescription, saysNothingWithoutAPath) {
  for (const char *text : {"", "Path=/a\n", "[Trash Info]\n", "[Trash Info]\nPath=\n",
                           "[Trash Info]\n[Other]\nPath=/a\n", "[Trash Info]\nPathology=/a\n"})
    EXPECT_FALSE(itemFromDescription(text, "/")) << text;
}

TEST(ListOfMounts, hasEscapesOfThreeDigits) {
  EXPECT_EQ(kw::withoutEscapes("\\040a\\134b\\011"), " a\\b\t");
  EXPECT_EQ(kw::withoutEscapes("/a\\04"), "/a\\04") << "a digit is missing";
  EXPECT_EQ(kw::withoutEscapes(std::string_view("/a\\040").substr(0, 5)), "/a\\04");
}

TEST(TrashFolders, areOnEachVolumeAndSharedOnesOnlyWithTheirStickyBit) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  std::string top = scratch.path("a volume\\ "); // the list of mounts escapes the last two
  fs::create_directory(top);
  auto foldersOfVolume = [&] {
    Strings paths;
    for (const kw::TrashFolder &folder : kw::trashFolders())
      if (folder.top == top)
        paths.push_back(folder.path.substr(top.size()));
    return paths;
  };
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::mountMemory(top))
                return "no mount";
              fs::create_directories(top + "/.Trash/0");
              fs::create_directory(top + "/.Trash-0");
              if (foldersOfVolume() != Strings{"/.Trash-0"})
                return "a shared folder without the sticky bit is used, or another is not";
              fs::permissions(top + "/.Trash", fs::perms::sticky_bit, fs::perm_options::add);
              bool hasBoth = foldersOfVolume() == Strings{"/.Trash/0", "/.Trash-0"};
              return hasBoth ? "" : "the shared folder is not used";
            }),
            "");
}

TEST(TrashFolders, areThoseOfThisUserAndListedOnce) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  std::string own = scratch.path("own"), other = scratch.path("other");
  fs::create_directory(own);
  fs::create_directory(other);
  scratch.file("file", "");
  ASSERT_EQ(::chown(other.c_str(), 1, 1), 0);
  auto folders =
      kw::ownFolders({{own, "/"}, {other, "/"}, {scratch.path("file"), "/"}, {own, "/"}});
  ASSERT_EQ(folders.size(), 1u);
  EXPECT_EQ(folders[0].path, own);
}

TEST(TrashFolders, areInTheHomeFirst) {
  kwtest::ScratchFolder scratch;
  kwtest::ScopedVariable home("HOME", scratch.path());
  kwtest::ScopedVariable data("XDG_DATA_HOME", "");
  fs::create_directories(scratch.path(".local/share/Trash"));
  auto folders = kw::trashFolders();
  ASSERT_FALSE(folders.empty());
  EXPECT_EQ(folders[0].path, scratch.path(".local/share/Trash"));
  EXPECT_EQ(folders[0].top, scratch.path(".local/share"));
}

// The list of volumes has further words in each line, two of them 0.
TEST(TrashFolders, areOnVolumesAlone) {
  kwtest::ScratchFolder scratch;
  fs::create_directories(scratch.path("0/.Trash-" + std::to_string(::getuid())));
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              fs::current_path(scratch.path());
              for (const kw::TrashFolder &folder : kw::trashFolders())
                if (!folder.path.starts_with('/'))
                  return folder.path;
              return "";
            }),
            "");
}

class UserTrash : public kwtest::AnsweredCommand {
protected:
  UserTrash() {
    fs::create_directories(scratch.path("data/Trash/info"));
    trashFolders = {{scratch.path("data/Trash"), scratch.path("data")}};
  }
  // Puts an item there as other programs do.
  void throwAway(const std::string &name, const std::string &description) {
    fs::create_directories(scratch.path("data/Trash/files"));
    scratch.file("data/Trash/files/" + name, "text");
    scratch.file("data/Trash/info/" + name + ".trashinfo", description);
  }
  std::string held(const std::string &name) const {
    return scratch.path("data/Trash/files/" + name);
  }
  std::string describing(const std::string &path, const std::string &date) const {
    return "[Trash Info]\nPath=" + path + "\nDeletionDate=" + date + "\n";
  }
};

TEST_F(UserTrash, isListedTheOldestFirst) {
  throwAway("b", describing("/srv/b", "2020-02-02T02:02:02"));
  throwAway("a", describing("/srv/a", "2021-01-01T01:01:01"));
  throwAway("c", describing("/srv/c", "soon"));
  scratch.file("data/Trash/info/gone.trashinfo", describing("/srv/gone", "2019-01-01T01:01:01"));
  for (const char *name : {"", ".", ".."}) // these name the folder itself or one above
    scratch.file(std::string("data/Trash/info/") + name + ".trashinfo",
                 describing("/srv/dots", "2019-01-01T01:01:01"));
  EXPECT_EQ(run({"trash", "list"}), 0);
  EXPECT_EQ(out.str(), "unknown                    4 KB\t/srv/c\n"
                       "2020-02-02 02:02:02        4 KB\t/srv/b\n"
                       "2021-01-01 01:01:01        4 KB\t/srv/a\n");
}

TEST_F(UserTrash, hasItemsWithDescriptionsAlone) {
  throwAway("a", describing("/srv/a", "2021-01-01T01:01:01"));
  scratch.file("data/Trash/files/b", "text");
  scratch.file("data/Trash/info/b.txt", describing("/srv/b", "2021-01-01T01:01:01"));
  scratch.file("data/Trash/files/c", "text");
  scratch.file("data/Trash/info/c.trashinfo", "nothing");
  EXPECT_EQ(run({"trash", "list"}), 0);
  EXPECT_EQ(out.str(), "2021-01-01 01:01:01        4 KB\t/srv/a\n");
}

TEST_F(UserTrash, isListedForPrograms) {
  throwAway("a", describing("/srv/a", "soon"));
  EXPECT_EQ(run({"trash", "list", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"trash list\",\"path\":\"/srv/a\",\"success\":true,"
                       "\"bytes\":4096,\"held\":\"" +
                           held("a") + "\"}\n");
}

TEST_F(UserTrash, isEmptiedForProgramsOnTrialToo) {
  throwAway("a", describing("/srv/a", "soon"));
  EXPECT_EQ(run({"trash", "empty", "-n", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"trash empty\",\"path\":\"/srv/a\",\"dryRun\":true,"
                       "\"success\":true}\n");
  EXPECT_TRUE(fs::exists(held("a")));
}

TEST_F(UserTrash, isNotTrustedWhenAnotherUserMadeIt) {
  throwAway("a", describing("/srv/a", "2021-01-01T01:01:01"));
  fs::rename(scratch.path("data/Trash"), scratch.path("data/other"));
  fs::create_directory_symlink("other", scratch.path("data/Trash"));
  EXPECT_EQ(run({"trash", "list"}), 0);
  EXPECT_EQ(out.str(), "");
}

// As on a volume that another person prepared.
TEST_F(UserTrash, isNotTrustedWhenItsFoldersAreLinks) {
  for (const char *part : {"files", "info"}) {
    fs::remove_all(scratch.path("data/Trash/files"));
    throwAway("precious", describing("/srv/a", "2021-01-01T01:01:01"));
    std::string folder = scratch.path("data/Trash/") + part, other = scratch.path(part);
    fs::rename(folder, other);
    fs::create_directory_symlink(other, folder);
    EXPECT_EQ(run({"trash", "empty", "--yes"}), 0);
    EXPECT_EQ(out.str(), "");
    EXPECT_TRUE(fs::exists(held("precious"))) << part;
    fs::remove(folder);
    fs::rename(other, folder);
  }
}

TEST_F(UserTrash, isRestoredWithoutReplacingAnything) {
  std::string place = scratch.path("very/deep/place");
  throwAway("a", describing(place, "2020-02-02T02:02:02"));
  EXPECT_EQ(run({"trash", "restore", "-n", place}), 0);
  EXPECT_EQ(out.str(), "Would restore " + place + ", 4 KB\n");
  EXPECT_TRUE(fs::exists(held("a")));
  EXPECT_EQ(run({"trash", "restore", "-n", "--json", place}), 0);
  EXPECT_NE(out.str().find("\"dryRun\":true,\"success\":true"), std::string::npos) << out.str();
  EXPECT_EQ(run({"trash", "restore", place}), 0);
  EXPECT_EQ(out.str(), "Restored " + place + "\n");
  EXPECT_EQ(scratch.content("very/deep/place"), "text");
  EXPECT_FALSE(fs::exists(held("a")));
  EXPECT_TRUE(fs::is_empty(scratch.path("data/Trash/info")));
  throwAway("a", describing(place, "2020-02-02T02:02:02"));
  EXPECT_EQ(run({"trash", "restore", place}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + place + " could not be restored: there is already an item\n");
  EXPECT_TRUE(fs::exists(held("a")));
  EXPECT_EQ(run({"trash", "restore", "/never/thrown"}), 1);
  EXPECT_TRUE(record.requests.empty());
}

// The agent is asked only where the rights of the user do not suffice.
TEST_F(UserTrash, keepsAnItemWhosePlaceIsNoLongerInAFolder) {
  std::string place = scratch.file("file", "") + "/place";
  throwAway("a", describing(place, "2020-02-02T02:02:02"));
  EXPECT_EQ(run({"trash", "restore", place}), 1);
  EXPECT_TRUE(err.str().starts_with("keepwell: " + place + " could not be restored: "))
      << err.str();
  EXPECT_TRUE(record.requests.empty()) << record.requests.front();
  EXPECT_TRUE(fs::exists(held("a")));
  EXPECT_FALSE(fs::is_empty(scratch.path("data/Trash/info")));
}

TEST_F(UserTrash, isRestoredByTheAgentIntoAFolderThatIsClosedToTheUser) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to become another user";
  fs::create_directory(scratch.path("closed"));
  std::string place = scratch.path("closed/place");
  throwAway("a", describing(place, "2020-02-02T02:02:02"));
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(scratch.path("closed"), fs::perms(0755));
  for (const char *name : {"", "/info", "/files", "/files/a"}) // the user's own
    ASSERT_EQ(::chown((scratch.path("data/Trash") + name).c_str(), 65534, 65534), 0);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              if (run({"trash", "restore", place}) != 0)
                return err.str();
              return record.requests == Strings{"MoveItemAtPath " + held("a") + " " + place}
                         ? out.str()
                         : "other requests";
            }),
            "Restored " + place + "\n");
}

TEST_F(UserTrash, needsThePathOfAnItemToRestore) {
  EXPECT_EQ(run({"trash", "restore"}), 2);
}

TEST_F(UserTrash, isEmptiedOfOldItemsOnly) {
  throwAway("old", describing("/srv/old", "2020-02-02T02:02:02"));
  throwAway("undated", describing("/srv/undated", "soon"));
  throwAway("new", describing("/srv/new", "2999-01-01T00:00:00"));
  EXPECT_EQ(run({"trash", "empty", "--older-than", "30d", "-n"}), 0);
  EXPECT_EQ(out.str(),
            "Would remove /srv/old from the Trash\n1 item in the Trash, 4 KB would be freed\n");
  EXPECT_TRUE(fs::exists(held("old")));
  ask = [](const std::string &question) -> std::optional<std::string> {
    EXPECT_EQ(question, "Remove 1 item from the Trash for good, 4 KB? [y/N] ");
    return "n";
  };
  EXPECT_EQ(run({"trash", "empty", "--older-than", "30d"}), 1);
  EXPECT_TRUE(fs::exists(held("old")));
  EXPECT_EQ(run({"trash", "empty", "--older-than", "30d", "--yes"}), 0);
  EXPECT_EQ(out.str(), "Removed /srv/old from the Trash\n");
  EXPECT_FALSE(fs::exists(held("old")));
  EXPECT_TRUE(fs::exists(held("undated")));
  EXPECT_TRUE(fs::exists(held("new")));
  EXPECT_FALSE(fs::exists(scratch.path("data/Trash/info/old.trashinfo")));
  EXPECT_EQ(run({"trash", "empty", "--yes"}), 0);
  EXPECT_TRUE(fs::is_empty(scratch.path("data/Trash/files")));
}

TEST_F(UserTrash, isAddedUpForAPerson) {
  throwAway("a", describing("/srv/a", "2020-02-02T02:02:02"));
  throwAway("b", describing("/srv/b", "2021-02-02T02:02:02"));
  onTerminal = true;
  EXPECT_EQ(run({"trash", "list"}), 0);
  EXPECT_TRUE(out.str().ends_with("/srv/b\n2 items in the Trash, 8 KB\n")) << out.str();
  EXPECT_EQ(run({"trash", "empty"}), 0);
  EXPECT_TRUE(out.str().ends_with("\n2 items in the Trash, 8 KB freed, 0.0 s\n")) << out.str();
}

TEST_F(UserTrash, mayBeEmpty) {
  onTerminal = true;
  EXPECT_EQ(run({"trash", "list"}), 0);
  EXPECT_EQ(out.str(), "0 items in the Trash, Zero KB\n");
  EXPECT_EQ(run({"trash", "empty", "-n"}), 0);
  EXPECT_EQ(out.str(), "0 items in the Trash, Zero KB would be freed\n");
}

TEST_F(UserTrash, countsNothingForAnItemThatHasGoneMeanwhile) {
  throwAway("a", describing("/srv/a", "2020-02-02T02:02:02"));
  kwtest::FakeFTS walks; // finds nothing
  EXPECT_EQ(run({"trash", "list", "--json"}), 0);
  EXPECT_NE(out.str().find("\"bytes\":0,"), std::string::npos) << out.str();
}

TEST_F(UserTrash, isNotMistakenForAnItemOfItsVerbsName) {
  kwtest::ScratchFolder here;
  here.file("list", "");
  fs::path former = fs::current_path();
  fs::current_path(here.path());
  int status = run({"trash", "list"});
  int stated = run({"trash", "--", "list"});
  fs::current_path(former);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(stated, 0);
  EXPECT_EQ(record.requests, Strings{"MoveToTrashItemAtPath " + here.path("list")});
}

TEST_F(UserTrash, getsNothingThatIsToBeRemoved) {
  trash = [](const std::string &) { return true; };
  for (const auto &[command, member] : {std::pair{"remove", "RemoveItemAtPath "},
                                        std::pair{"shred", "SecurelyRemoveItemAtPath "}}) {
    EXPECT_EQ(run({command, item}), 0);
    EXPECT_EQ(record.requests, Strings{member + item});
  }
}

TEST_F(UserTrash, isUsedBeforeTheAgentIsAsked) {
  Strings tried;
  bool works = true;
  trash = [&](const std::string &path) {
    tried.push_back(path);
    return works;
  };
  EXPECT_EQ(run({"trash", item}), 0);
  EXPECT_EQ(out.str(), "Moved " + item + " to the Trash\n");
  EXPECT_TRUE(record.requests.empty());
  works = false;
  EXPECT_EQ(run({"trash", item, "/no/such", "/usr"}), 1);
  EXPECT_EQ(out.str(), "Moved " + item +
                           " to the Trash of the agent's user\n"
                           "/no/such: there was nothing there\n");
  EXPECT_EQ(tried, (Strings{item, item}));
}

} // namespace
