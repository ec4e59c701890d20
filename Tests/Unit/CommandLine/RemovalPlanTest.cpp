// The items that a removal takes, and those that a keep list spares.
#include "CommandLine/RemovalPlan.h"

#include "Support/AnsweredCommand.h"
#include "Support/FakeFTS.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

using kw::KeepList;
using kw::matchesPattern;
using kw::RemovalPlan;
using kw::RemovalPlanner;
using Strings = std::vector<std::string>;

TEST(KeepPattern, matchesAsAShellWould) {
  struct Row {
    const char *pattern, *text;
    bool matches;
  };
  for (const Row &row : {Row{"a", "a", true},
                         Row{"a", "b", false},
                         Row{"a", "aa", false},
                         Row{"*", "", true},
                         Row{"*", "abc", true},
                         Row{"*", "a/b", false},
                         Row{"**", "a/b", true},
                         Row{"***c", "a/bc", true},
                         Row{"/a/**/c", "/a/b/x/c", true},
                         Row{"/a/*/c", "/a/b/x/c", false},
                         Row{"/a/*/c", "/a/b/c", true},
                         Row{"?", "a", true},
                         Row{"?", "/", false},
                         Row{"?", "", false},
                         Row{"*.pdf", "a.pdf", true},
                         Row{"*.pdf", "a.pdf.x", false},
                         Row{"[abc]", "b", true},
                         Row{"[a-c]x", "bx", true},
                         Row{"[abc]", "]", false},
                         Row{"[!a-c]", "b", false},
                         Row{"[!a-c]", "d", true},
                         Row{"[!a]", "/", false},
                         Row{"[^a]", "b", true},
                         Row{"[!]a]", "]", false},
                         Row{"[!a]b", "bb", true},
                         Row{"[a-c]", "a", true},
                         Row{"[a-c]", "c", true},
                         Row{"[a-c]", "-", false},
                         Row{"[a-cx]", "x", true},
                         Row{"[a-]", "-", true},
                         Row{"[]]", "]", true},
                         Row{"[a", "[a", true},
                         Row{"\\*", "*", true},
                         Row{"\\*", "a", false},
                         Row{"\\*b", "*b", true},
                         Row{"\\", "\\", true},
                         Row{"", "", true},
                         Row{"", "a", false}})
    EXPECT_EQ(matchesPattern(row.pattern, row.text), row.matches) << row.pattern << " " << row.text;
}

TEST(KeepPattern, doesNotTakeLongForAnyText) {
  std::string pattern;
  for (int count = 0; count < 200; ++count)
    pattern += "*a";
  EXPECT_FALSE(matchesPattern(pattern + "b", std::string(5000, 'a')));
}

class RemovalPlanTest : public testing::Test {
protected:
  RemovalPlan plan(const Strings &patterns, const std::string &name = "tree") {
    KeepList keep(patterns);
    RemovalPlanner planner(keep);
    return planner.plan(scratch.path(name));
  }
  // Relative to the scratch folder, sorted.
  Strings relative(const Strings &paths) const {
    Strings names;
    for (const std::string &path : paths)
      names.push_back(path.substr(scratch.path().size() + 1));
    std::sort(names.begin(), names.end());
    return names;
  }
  void file(const std::string &name) {
    std::filesystem::create_directories(std::filesystem::path(scratch.path(name)).parent_path());
    scratch.file(name, "x");
  }

  kwtest::ScratchFolder scratch;
};

TEST_F(RemovalPlanTest, takesTheWholeWhereNothingIsKept) {
  file("tree/a/b");
  file("tree/c");
  RemovalPlan plan = this->plan({});
  EXPECT_TRUE(plan.exists);
  EXPECT_EQ(relative(plan.roots), Strings{"tree"});
  EXPECT_EQ(plan.items, 4u);
  EXPECT_TRUE(plan.kept.empty());
}

TEST_F(RemovalPlanTest, goesAroundKeptItems) {
  for (const char *name : {"tree/a/keep", "tree/a/go", "tree/b/x/y", "tree/c"})
    file(name);
  RemovalPlan plan = this->plan({"keep"});
  EXPECT_EQ(relative(plan.roots), (Strings{"tree/a/go", "tree/b", "tree/c"}));
  EXPECT_EQ(relative(plan.kept), Strings{"tree/a/keep"});
  EXPECT_EQ(plan.items, 5u);
}

TEST_F(RemovalPlanTest, keepsAFolderWithAllThatItHolds) {
  file("tree/keep/deep/file");
  file("tree/go");
  RemovalPlan plan = this->plan({"keep"});
  EXPECT_EQ(relative(plan.roots), Strings{"tree/go"});
  EXPECT_EQ(relative(plan.kept), Strings{"tree/keep"});
}

TEST_F(RemovalPlanTest, takesNothingInAKeptFolder) {
  file("kept/tree/file");
  EXPECT_TRUE(plan({scratch.path("kept")}, "kept/tree").roots.empty());
  EXPECT_TRUE(plan({scratch.path("kept") + "/"}, "kept/tree/file").roots.empty());
  EXPECT_TRUE(plan({"tree"}, "kept/tree/").roots.empty());
  EXPECT_FALSE(plan({scratch.path("other")}, "kept/tree").roots.empty());
}

TEST_F(RemovalPlanTest, isNotLedAroundTheListByLinks) {
  file("real/kept/file");
  std::filesystem::create_directory_symlink(scratch.path("real"), scratch.path("link"));
  EXPECT_TRUE(plan({scratch.path("real/kept")}, "link/kept/file").roots.empty());
  EXPECT_TRUE(plan({scratch.path("link/kept")}, "real/kept/file").roots.empty());
  EXPECT_TRUE(plan({scratch.path("real/kept")}, "link/./../link/kept").roots.empty());
  EXPECT_EQ(relative(plan({scratch.path("link/k*")}, "real").roots), Strings{});
  file("real/some/kept");
  file("real/some/other");
  EXPECT_EQ(relative(plan({scratch.path("real/some/kept")}, "link/some").roots),
            Strings{"link/some/other"});
  // The link itself is an item of its own.
  EXPECT_EQ(relative(plan({scratch.path("real/kept")}, "link").roots), Strings{"link"});
}

TEST_F(RemovalPlanTest, takesTheFolderThatALinkLeadsToByItsOwnName) {
  file("[k]?/kept");
  file("[k]?/go");
  file("kk/kept");
  std::filesystem::create_directory_symlink(scratch.path("[k]?"), scratch.path("link"));
  Strings patterns{scratch.path("link/kept")};
  EXPECT_EQ(relative(plan(patterns, "[k]?").roots), Strings{"[k]?/go"});
  EXPECT_EQ(relative(plan(patterns, "kk").roots), Strings{"kk"}) << "its name is no pattern";
}

TEST_F(RemovalPlanTest, keepsItemsWhoseNamesAreGivenWithSlashesBehindThem) {
  file("tree/a/file");
  file("tree/b");
  for (const char *name : {"a/", "a//"})
    EXPECT_EQ(relative(plan({name}).roots), Strings{"tree/b"}) << name;
}

TEST_F(RemovalPlanTest, takesNothingWhereTheRootIsKept) {
  file("tree/a");
  EXPECT_TRUE(plan({"/"}).roots.empty());
}

TEST_F(RemovalPlanTest, knowsMissingItems) {
  RemovalPlan plan = this->plan({});
  EXPECT_FALSE(plan.exists);
  EXPECT_TRUE(plan.roots.empty() && plan.unknown.empty());
}

TEST_F(RemovalPlanTest, countsHardLinksTogetherAcrossItems) {
  file("one/file");
  std::filesystem::create_directories(scratch.path("two"));
  std::filesystem::create_hard_link(scratch.path("one/file"), scratch.path("two/file"));
  KeepList keep(Strings{});
  RemovalPlanner planner(keep);
  RemovalPlan one = planner.plan(scratch.path("one/file"));
  RemovalPlan two = planner.plan(scratch.path("two/file"));
  EXPECT_EQ(one.freedBytes, 0u);
  EXPECT_EQ(two.allocatedBytes, 0u);
  EXPECT_EQ(two.freedBytes, one.allocatedBytes);
  EXPECT_EQ(one.largest.sorted().size(), 1u);
  EXPECT_TRUE(two.largest.sorted().empty());
}

// As on a volume that gives all of them one number.
TEST_F(RemovalPlanTest, countsFilesWithoutHardLinksEachByItself) {
  kwtest::FakeFTS walks;
  NS::FTSStat status;
  status.linkCount = 1;
  status.blocks = 8;
  NS::FTSEntry &top = walks.add(scratch.path("tree"), NS::FTSInfo::D, walks.top);
  for (const char *name : {"tree/a", "tree/b"})
    walks.add(scratch.path(name), NS::FTSInfo::F, top, status);
  walks.again(top, NS::FTSInfo::DP);
  RemovalPlan plan = this->plan({});
  EXPECT_EQ(plan.allocatedBytes, 8192u);
  EXPECT_EQ(plan.freedBytes, 8192u);
}

TEST_F(RemovalPlanTest, countsNothingTwice) {
  file("tree/a/b");
  KeepList keep(Strings{});
  RemovalPlanner planner(keep);
  EXPECT_EQ(planner.plan(scratch.path("tree/a")).items, 2u);
  EXPECT_EQ(planner.plan(scratch.path("tree/a/b")).items, 0u);
  EXPECT_EQ(planner.plan(scratch.path("tree")).items, 1u) << "but for the folder itself";
  EXPECT_EQ(planner.plan(scratch.path("tree")).items, 0u);
}

// An item that does not exist would be sent to the agent as it is.
TEST_F(RemovalPlanTest, knowsAnItemThatAnotherPathHasTaken) {
  file("tree/a/b");
  KeepList keep(Strings{"b"});
  RemovalPlanner planner(keep);
  for (const char *path : {"tree", "tree/a", "tree/a/b"}) {
    RemovalPlan plan = planner.plan(scratch.path(path));
    EXPECT_TRUE(plan.exists) << path;
    EXPECT_TRUE(plan.roots.empty()) << path;
  }
  file("other/a");
  EXPECT_EQ(planner.plan(scratch.path("other")).roots.size(), 1u);
  for (const char *path : {"other", "other/a"}) {
    RemovalPlan again = planner.plan(scratch.path(path));
    EXPECT_TRUE(again.exists) << path;
    EXPECT_TRUE(again.roots.empty()) << path;
  }
}

TEST_F(RemovalPlanTest, takesNoFolderForAMountPointWithoutAKnownVolumeAbove) {
  kwtest::FakeFTS walks;
  walks.refusesFirst = true; // for the folder above
  NS::FTSStat status;
  status.device = 7;
  NS::FTSEntry &top = walks.add(scratch.path("tree"), NS::FTSInfo::D, walks.top, status);
  walks.again(top, NS::FTSInfo::DP);
  RemovalPlan plan = this->plan({});
  EXPECT_TRUE(plan.refusals.empty());
  EXPECT_EQ(relative(plan.roots), Strings{"tree"});
}

TEST_F(RemovalPlanTest, takesAnItemThatCannotBeSeenForOneThatExists) {
  file("shut/inner");
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(scratch.path("shut"), std::filesystem::perms::none);
  for (const Strings &names : {Strings{}, Strings{"x"}})
    EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
                KeepList keep(names);
                RemovalPlan plan = RemovalPlanner(keep).plan(scratch.path("shut/inner"));
                if (!plan.exists)
                  return "missing";
                if (plan.unknown != Strings{scratch.path("shut/inner")})
                  return "not among the unknown ones";
                return plan.roots.empty() == names.empty() ? "other roots" : "";
              }),
              "");
  std::filesystem::permissions(scratch.path("shut"), std::filesystem::perms::owner_all);
}

class RemovalPreview : public kwtest::AnsweredCommand {
protected:
  // Has the folder hold another one that this user cannot read.
  void SetUp() override {
    NS::FTSStat folder;
    folder.mode = 0040755;
    NS::FTSEntry &top = walks.add(tree, NS::FTSInfo::D, walks.top, folder);
    NS::FTSEntry &inner = walks.add(closed, NS::FTSInfo::D, top, folder);
    walks.again(inner, NS::FTSInfo::DNR);
    walks.again(top, NS::FTSInfo::DP);
  }

  kwtest::FakeFTS walks;
  std::string tree = scratch.path();
  std::string closed = tree + "/closed";
};

TEST_F(RemovalPreview, hasTheAgentMeasureAFolderThatCannotBeRead) {
  record.size = 50'000;
  EXPECT_EQ(run({"remove", "-n", tree}), 0);
  EXPECT_EQ(out.str(), "Would remove " + tree + "\n     50 KB  " + closed +
                           "\nat least 2 items, 50 KB on disk, 50 KB would be freed\n");
  EXPECT_EQ(run({"--json", "remove", "-n", tree}), 0);
  EXPECT_EQ(out.str(),
            "{\"command\":\"remove\",\"path\":\"" + tree +
                "\",\"dryRun\":true,\"success\":true,\"remove\":[\"" + tree +
                "\"],\"kept\":[],\"unknown\":[],\"measured\":[\"" + closed +
                "\"],\"items\":2,\"allocated\":50000,\"freed\":50000,\"largest\":[{\"path\":\"" +
                closed +
                "\",\"bytes\":50000}]}\n{\"command\":\"remove\",\"dryRun\":true,\"success\":true,"
                "\"total\":{\"items\":2,\"allocated\":50000,\"freed\":50000}}\n");
}

TEST_F(RemovalPreview, tellsOfAFolderThatTheAgentCannotMeasure) {
  record.failure = kwtest::ClientError(kwtest::ClientError::Kind::Refused, "", "no");
  EXPECT_EQ(run({"remove", "-n", tree}), 0);
  EXPECT_EQ(out.str(), "Would remove " + tree +
                           "\nat least 2 items, Zero KB on disk, Zero KB would be freed\n");
  EXPECT_EQ(err.str(), "keepwell: " + closed + " cannot be read; its contents are not counted\n");
}

TEST_F(RemovalPreview, promisesNoSpaceFromTheTrash) {
  record.size = 50'000;
  EXPECT_EQ(run({"trash", "-n", tree}), 0);
  EXPECT_TRUE(out.str().ends_with("\nat least 2 items, 50 KB on disk, Zero KB would be freed\n"))
      << out.str();
  EXPECT_EQ(run({"--json", "trash", "-n", tree}), 0);
  EXPECT_NE(out.str().find("\"allocated\":50000,\"freed\":0,"), std::string::npos) << out.str();
}

class RemovalAround : public kwtest::AnsweredCommand {};

TEST_F(RemovalAround, tellsInADryRunOfAnItemThatIsNotThere) {
  EXPECT_EQ(run({"remove", "-n", scratch.path("missing")}), 0);
  EXPECT_EQ(out.str(), scratch.path("missing") +
                           " is not there\n0 items, Zero KB on disk, Zero KB would be freed\n");
}

// Otherwise it would go with the items to keep.
TEST_F(RemovalAround, leavesAnItemThatCouldNotBeReadToItsEnd) {
  for (bool hasBegun : {false, true}) {
    kwtest::FakeFTS walks;
    if (hasBegun)
      walks.add(scratch.path(), NS::FTSInfo::D, walks.top);
    walks.failure = ENOMEM;
    EXPECT_EQ(run({"remove", "--yes", "--keep", "x", scratch.path()}), 1) << hasBegun;
    EXPECT_TRUE(record.requests.empty()) << record.requests.front();
    EXPECT_EQ(err.str(), "keepwell: " + scratch.path() +
                             " cannot be read and stays, since it may hold items to keep\n");
  }
}

TEST_F(RemovalAround, tellsOfPathsThatTheAgentRefuses) {
  std::string odd = scratch.file("\xff", "");
  EXPECT_EQ(run({"remove", "--yes", "--keep", "x", odd}), 1);
  EXPECT_TRUE(record.requests.empty());
  EXPECT_EQ(err.str(),
            "keepwell: " + odd + " is not valid UTF-8 and cannot be sent to the agent\n");
  EXPECT_EQ(run({"remove", "--dry-run", "--json", "--quiet", odd}), 1);
  EXPECT_NE(out.str().find("\"success\":false"), std::string::npos) << out.str();
  EXPECT_EQ(run({"remove", "--dry-run", "--json", "--quiet", item}), 0);
  EXPECT_EQ(out.str(), "") << "there is no failure to tell of";
  EXPECT_TRUE(std::filesystem::exists(odd));
}

} // namespace
