// Search, walk and filtered list, over real folders and over made-up walks.
#include "Additions/NSFileManager+Enumeration.h"

#include "Support/Allocations.h"
#include "Support/FakeFTS.h"
#include "Support/ForkedChild.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LogRecorder.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <new>

namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

class Enumeration : public ::testing::Test {
protected:
  kwtest::ScratchFolder scratch;
  std::string root = scratch.path("root");
  NS::FileManager &manager = NS::FileManager::defaultManager();

  void SetUp() override { fs::create_directory(root); }

  void directory(const std::string &name) { fs::create_directories(root + "/" + name); }
  void file(const std::string &name) { scratch.file("root/" + name, ""); }
  void link(const std::string &target, const std::string &name) {
    fs::create_symlink(target, root + "/" + name);
  }
  // The found paths, relative to the root and sorted.
  Paths relative(Paths paths) const {
    for (std::string &path : paths)
      path = path.substr(std::min(path.size(), root.size() + 1));
    std::sort(paths.begin(), paths.end());
    return paths;
  }
  Paths find(const std::string &name, bool byWords = false, bool recursive = true,
             const kw::NameExclusion &exclusion = nullptr) {
    return relative(kw::findFile(manager, name, root, byWords, recursive, exclusion));
  }
  Paths walk(bool recursive = true) {
    Paths paths;
    EXPECT_TRUE(kw::kw_FTSWalkAtPath(manager, root, recursive,
                                     [&](const std::string &path, bool isDirectory, bool &) {
                                       paths.push_back(path + (isDirectory ? "/" : ""));
                                     }));
    return relative(paths);
  }
};

using FindFile = Enumeration;
using Walk = Enumeration;
using FilteredList = Enumeration;

// A name with other letters than ASCII's takes memory to compare.
TEST_F(FindFile, losesNoItemInSilenceWithoutMemory) {
  std::string name = "gr\u00f6\u00dfe and more than a small string holds";
  file(name);
  bool wasShort = true;
  int rounds = 0;
  for (; wasShort; ++rounds) {
    kwtest::LogRecorder log;
    bool isTold = false;
    Paths found;
    kwtest::allocationsLeft() = rounds;
    try {
      found = kw::findFile(manager, name, root, false, true, nullptr);
    } catch (const std::bad_alloc &) {
      isTold = true;
    }
    wasShort = !kwtest::allocationsLeft();
    kwtest::allocationsLeft().reset();
    EXPECT_TRUE(isTold || !log.lines().empty() || relative(found) == Paths{name}) << rounds;
  }
  EXPECT_GT(rounds, 10);
}

TEST_F(FindFile, findsNamesThatContainTheNameButNoNumberedCopies) {
  for (const char *name : {"foo", "Foo Agent", "foo 2", "foo3", "fo", "other"})
    file(name);
  EXPECT_EQ(find("Foo"), (Paths{"Foo Agent", "foo"}));
}

TEST_F(FindFile, matchesWordByWord) {
  for (const char *name : {"Foo.plist", "Foo Agent.log", "Agent of Foo", "Food", "foo 2.plist"})
    file(name);
  EXPECT_EQ(find("foo", true), (Paths{"Agent of Foo", "Foo Agent.log", "Foo.plist"}));
  EXPECT_EQ(find("agent foo", true), (Paths{"Agent of Foo", "Foo Agent.log"}));
}

TEST_F(FindFile, comparesAFoldersWholeNameByWords) {
  directory("Foo.app");
  file("bar Foo.app");
  EXPECT_EQ(find("foo", true), (Paths{"bar Foo.app"}))
      << "an existing folder keeps its extension, so that its word is another";
  EXPECT_EQ(find("foo.app", true), (Paths{"Foo.app", "Foo.app"}));
}

TEST_F(FindFile, looksForCopiesInTheNameWithoutItsExtension) {
  file("foo.v1");
  EXPECT_EQ(find("foo"), (Paths{"foo.v1"}));
  file("foo.1");
  EXPECT_EQ(find("foo"), (Paths{"foo.1", "foo.v1"})) << "the number is an extension there";
  file("foo 1.txt");
  EXPECT_EQ(find("foo"), (Paths{"foo.1", "foo.v1"}));
}

TEST_F(FindFile, takesTheNameForAnExpressionAndForAText) {
  for (const char *name : {"a.c", "abc 2", "a.c x"})
    file(name);
  EXPECT_EQ(find("a.c"), (Paths{"a.c", "a.c x"}));
  file("c++");
  file("c++ 2");
  EXPECT_EQ(find("c++"), (Paths{"c++", "c++ 2"})) << "its copies escape the expression";
  file("(odd");
  file("(odd 2");
  EXPECT_EQ(find("(odd"), (Paths{"(odd", "(odd 2"})) << "what is no expression finds no copies";
}

TEST_F(FindFile, givesAFolderTwiceAndAFileOnce) {
  directory("Foo");
  file("Foo/foo.txt");
  Paths found = kw::findFile(manager, "foo", root, false, true);
  EXPECT_EQ(found, (Paths{root + "/Foo", root + "/Foo/foo.txt", root + "/Foo"}));
}

TEST_F(FindFile, givesAFolderTwiceThoughItIsNotEntered) {
  directory("Foo");
  file("Foo/foo.txt");
  EXPECT_EQ(find("foo", false, false), (Paths{"Foo", "Foo"}));
}

TEST_F(FindFile, neverGivesTheRootNorItemsOfItsName) {
  directory("sub/root");
  file("sub/root/root 0 x root");
  file("rooted");
  EXPECT_EQ(find("root"), (Paths{"rooted"}));
}

TEST_F(FindFile, entersAFolderThatBearsTheRootsNameThoughNotRecursive) {
  directory("root");
  file("root/foo");
  directory("other");
  file("other/foo");
  EXPECT_EQ(find("foo", false, false), (Paths{"root/foo"}));
}

TEST_F(FindFile, knowsTheRootInSpiteOfSlashesAtTheEnd) {
  file("root x");
  EXPECT_EQ(kw::findFile(manager, "root", root + "//", false, false), (Paths{root + "/root x"}));
}

TEST_F(FindFile, goesThroughALinkWithASlashAtTheEndAndNoOther) {
  file("foo");
  fs::create_directory_symlink(root, scratch.path("link"));
  EXPECT_EQ(kw::findFile(manager, "foo", scratch.path("link/"), false, true),
            (Paths{scratch.path("link/foo")}));
  EXPECT_EQ(kw::findFile(manager, "foo", scratch.path("link//"), false, true),
            (Paths{scratch.path("link/foo")}));
  EXPECT_EQ(kw::findFile(manager, "foo", scratch.path("link"), false, true), Paths{});
  // The search does not return the root by that name either.
  EXPECT_EQ(kw::findFile(manager, "link", scratch.path("link/"), true, true), Paths{});
}

TEST_F(FindFile, neitherGivesNorEntersExcludedItems) {
  directory("Foo");
  file("Foo/foo inside");
  file("foo outside");
  EXPECT_EQ(find("foo", false, true, [](const std::string &name) { return name == "Foo"; }),
            (Paths{"foo outside"}));
}

TEST_F(FindFile, readsNoFolderAheadThatItMayPassOver) {
  kwtest::FakeFTS walks;
  kw::findFile(manager, "foo", "/x", false, true);
  EXPECT_EQ(walks.openedForAll, 1);
  kw::findFile(manager, "foo", "/x", false, false);
  kw::findFile(manager, "foo", "/x", false, true, [](const std::string &) { return false; });
  EXPECT_EQ(walks.opened, 3);
  EXPECT_EQ(walks.openedForAll, 1);
}

TEST_F(FindFile, refusesEmptyNamesAndPlacesToBegin) {
  kwtest::FakeFTS walks;
  NS::ScopedOverride<NS::FTS> override(walks);
  EXPECT_TRUE(kw::findFile(manager, "", root, false, true).empty());
  EXPECT_TRUE(kw::findFile(manager, std::nullopt, root, false, true).empty());
  EXPECT_TRUE(kw::findFile(manager, "foo", std::nullopt, false, true).empty());
  for (const char *path : {"", "/", "//", ".", "./"})
    EXPECT_TRUE(kw::findFile(manager, "foo", path, false, true).empty()) << path;
  EXPECT_EQ(walks.opened, 0);
}

TEST_F(FindFile, opensItsWalkWithoutStatusAndClosesIt) {
  kwtest::FakeFTS walks;
  NS::ScopedOverride<NS::FTS> override(walks);
  EXPECT_TRUE(kw::findFile(manager, "foo", "/x", false, true).empty());
  EXPECT_EQ(walks.openedOptions, 0x1c);
  EXPECT_EQ(walks.closed, 1);
}

TEST_F(FindFile, findsNothingWhereNoWalkBegins) {
  EXPECT_TRUE(kw::findFile(manager, "foo", root + "/missing", false, true).empty());
  EXPECT_TRUE(kw::findFile(manager, "foo", std::string("/\0x", 3), false, true).empty());
}

TEST_F(FindFile, logsNothingOfASearchThatCameToItsEnd) {
  file("foo");
  kwtest::LogRecorder log;
  EXPECT_EQ(find("foo"), Paths{"foo"});
  EXPECT_EQ(log.lines(), Paths());
}

TEST_F(FindFile, keepsNamesOfInvalidUTF8) {
  file("foo\xff");
  directory("\xff\xfe");
  file("\xff\xfe/FOO");
  EXPECT_EQ(find("foo"), (Paths{"foo\xff", "\xff\xfe/FOO"}));
}

TEST_F(FindFile, findsEquivalentSpellingsOfAName) {
  file("Cafe\u0301 Noir");
  EXPECT_EQ(find("café"), (Paths{"Cafe\u0301 Noir"}));
  EXPECT_EQ(find("cafe"), Paths{});
}

TEST_F(FindFile, doesNotFollowLinks) {
  fs::create_directory(scratch.path("outside"));
  scratch.file("outside/foo", "");
  link("../outside", "foo link");
  EXPECT_EQ(find("foo"), (Paths{"foo link"}));
}

TEST_F(FindFile, endsInATreeThatIsMountedIntoItself) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to mount";
  directory("a/b");
  file("a/foo");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              std::string inner = root + "/a/b";
              if (!kwtest::enterMountNamespace() ||
                  ::mount(root.c_str(), inner.c_str(), nullptr, MS_BIND, nullptr) != 0)
                return "no mount";
              if (find("foo") != Paths{"a/foo"})
                return "the search lost its way";
              Paths walked = walk();
              return walked.size() == 3 ? "" : "the walk gave " + std::to_string(walked.size());
            }),
            "");
}

TEST_F(Walk, handsOverEverythingBelowTheRootOnce) {
  directory("d/e");
  file("d/f");
  link("/", "l");
  EXPECT_EQ(walk(), (Paths{"d/", "d/e/", "d/f", "l"}));
}

TEST_F(Walk, notRecursiveStaysWithTheChildren) {
  directory("d/e");
  file("f");
  EXPECT_EQ(walk(false), (Paths{"d/", "f"}));
}

TEST_F(Walk, endsWhenTheHandlerSaysSo) {
  file("a");
  file("b");
  int calls = 0;
  EXPECT_TRUE(kw::kw_FTSWalkAtPath(manager, root, true, [&](const std::string &, bool, bool &stop) {
    ++calls;
    stop = true;
  }));
  EXPECT_EQ(calls, 1);
}

TEST_F(Walk, needsAPathAndAHandler) {
  auto ignore = [](const std::string &, bool, bool &) {};
  EXPECT_FALSE(kw::kw_FTSWalkAtPath(manager, "", true, ignore));
  EXPECT_FALSE(kw::kw_FTSWalkAtPath(manager, root, true, nullptr));
  EXPECT_FALSE(kw::kw_FTSWalkAtPath(manager, std::string("/\0x", 3), true, ignore));
}

TEST_F(Walk, ofAnEmptyFolderAndOfNothingSucceeds) {
  EXPECT_EQ(walk(), Paths{});
  root += "/missing";
  EXPECT_EQ(walk(), Paths{});
}

TEST_F(Walk, staysOnItsVolume) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to mount";
  directory("m");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              std::string mounted = root + "/m";
              if (!kwtest::enterMountNamespace() ||
                  ::mount("none", mounted.c_str(), "tmpfs", 0, nullptr) != 0)
                return "no mount";
              file("m/foo");
              if (find("foo") != Paths{"m/foo"})
                return "the search should cross over";
              return walk() == Paths{"m/"} ? "" : "the walk left its volume";
            }),
            "");
}

TEST_F(Walk, tellsOfAFolderThatCannotBeReadAndGoesOn) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to become another user";
  directory("closed");
  file("z");
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(root, fs::perms(0755));
  fs::permissions(root + "/closed", fs::perms(0));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              Paths expected{"closed", "closed/", "z"};
              return walk() == expected ? "" : "something else was handed over";
            }),
            "");
}

TEST_F(Walk, neverTellsOfItsRootThoughThatCannotBeRead) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to become another user";
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(root, fs::perms(0));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              return walk() == Paths{} ? "" : "the root was handed over";
            }),
            "");
}

class FakeWalk : public ::testing::Test {
protected:
  kwtest::FakeFTS walks;
  NS::ScopedOverride<NS::FTS> override{walks};
  NS::FileManager &manager = NS::FileManager::defaultManager();
  NS::FTSEntry &top = walks.add("/x", NS::FTSInfo::D, walks.top);
  std::vector<std::pair<std::string, bool>> handed;

  bool walk() {
    return kw::kw_FTSWalkAtPath(manager, "/x", true,
                                [this](const std::string &path, bool isDirectory, bool &) {
                                  handed.emplace_back(path, isDirectory);
                                });
  }
};

TEST_F(FakeWalk, failsAtTheFirstErrorWithoutTellingTheHandler) {
  walks.add("/x/a", NS::FTSInfo::F, top);
  walks.add("/x/b", NS::FTSInfo::ERR, top);
  walks.add("/x/c", NS::FTSInfo::F, top);
  EXPECT_FALSE(walk());
  ASSERT_EQ(handed.size(), 1u);
  EXPECT_EQ(handed[0].first, "/x/a");
  EXPECT_EQ(walks.closed, 1);
  EXPECT_EQ(walks.openedOptions, 0x5c);
}

TEST_F(FakeWalk, handsEveryKindOverAndOnlyFoldersAsSuch) {
  using enum NS::FTSInfo;
  for (NS::FTSInfo info : {D, DC, DEFAULT, DNR, F, NSOK, SL, SLNONE})
    walks.add("/x/i", info, top);
  walks.add("/x/i", NS::FTSInfo::NS, top);
  walks.again(top, NS::FTSInfo::DP);
  EXPECT_TRUE(walk());
  EXPECT_EQ(handed.size(), 9u);
  EXPECT_EQ(std::count_if(handed.begin(), handed.end(), [](auto &item) { return item.second; }), 1);
}

TEST_F(FakeWalk, failsForARootThatCannotBeReadToItsEnd) {
  walks.again(top, NS::FTSInfo::ERR);
  EXPECT_FALSE(walk());
  EXPECT_TRUE(handed.empty());
}

TEST_F(FakeWalk, logsAnExceptionOfClosingAndKeepsItsResult) {
  walks.raisesOnClose = true;
  kwtest::LogRecorder log;
  EXPECT_TRUE(walk());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("fts_close exception = ")) << log.lines()[0];
}

TEST_F(FilteredList, givesEverythingThatExistsWithoutAFilter) {
  directory("d/.e");
  file("d/f");
  link("nowhere", "dangling");
  link("d", "l");
  EXPECT_EQ(relative(kw::filesByEnumeratingAtPath(manager, root, nullptr)),
            (Paths{"d", "d/.e", "d/f", "l"}));
}

TEST_F(FilteredList, walksOnBelowFoldersThatTheFilterPassesOver) {
  directory("d/e");
  Paths asked;
  Paths found = kw::filesByEnumeratingAtPath(manager, root, [&](const std::string &path) {
    asked.push_back(path);
    return path != "d";
  });
  EXPECT_EQ(relative(found), (Paths{"d/e"}));
  EXPECT_EQ(asked, (Paths{"d", "d/e"}));
}

TEST_F(FilteredList, isEmptyForAMissingPath) {
  EXPECT_TRUE(kw::filesByEnumeratingAtPath(manager, root + "/missing", nullptr).empty());
}

TEST_F(FilteredList, asksTheReceiverWhetherTheFolderIsThere) {
  struct Receiver : kwtest::ForwardingFileManager {
    using ForwardingFileManager::fileExistsAtPath;
    bool fileExistsAtPath(const std::string &path) override { return path != missing; }
    std::string missing;
  } receiver;
  directory("d");
  EXPECT_EQ(relative(kw::filesByEnumeratingAtPath(receiver, root, nullptr)), Paths{"d"});
  receiver.missing = root;
  Paths asked;
  EXPECT_EQ(kw::filesByEnumeratingAtPath(receiver, root,
                                         [&](const std::string &path) {
                                           asked.push_back(path);
                                           return true;
                                         }),
            Paths());
  EXPECT_EQ(asked, Paths());
}

TEST_F(Walk, isIncompleteWhenItWasGivenUp) {
  kwtest::FakeFTS walks;
  walks.add("/x", NS::FTSInfo::D, walks.top);
  walks.failure = EMFILE;
  EXPECT_FALSE(kw::kw_FTSWalkAtPath(manager, "/x", true, [](const std::string &, bool, bool &) {}));
}

TEST_F(FindFile, saysWhenItWasGivenUp) {
  kwtest::FakeFTS walks;
  kwtest::LogRecorder log;
  walks.failure = EMFILE;
  EXPECT_EQ(kw::findFile(manager, "name", "/x", false, true), Paths());
  EXPECT_EQ(log.lines(), Paths{"/x was not searched to its end: Too many open files"});
}

} // namespace
