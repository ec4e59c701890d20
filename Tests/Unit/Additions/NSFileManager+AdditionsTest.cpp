// Questions about paths, over real folders.
#include "Additions/NSFileManager+Additions.h"

#include "Support/FakeFileFlags.h"
#include "Support/ForkedChild.h"
#include "Support/ForwardingFileManager.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/SharedInstance.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/xattr.h>

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;
using Paths = std::vector<std::string>;

class PathInspection : public ::testing::Test {
protected:
  kwtest::ScratchFolder folder;
  NS::FileManager &manager = NS::FileManager::defaultManager();

  std::string directory(const std::string &name) {
    fs::create_directories(folder.path(name));
    return folder.path(name);
  }
  std::string link(const std::string &target, const std::string &name) {
    fs::create_symlink(target, folder.path(name));
    return folder.path(name);
  }
  static std::shared_ptr<const NS::RegularExpression> expression(const std::string &pattern) {
    return NS::RegularExpression::regularExpressionWithPattern(pattern, NS::RegularExpressionNone);
  }
  bool anyMatches(const std::string &pattern, std::uint64_t level) {
    return kw::fileExistsAtPath(manager, folder.path(), expression(pattern).get(), level);
  }
};

// Notes which calls reach a manager.
class WatchedManager final : public kwtest::ForwardingFileManager {
public:
  using ForwardingFileManager::fileExistsAtPath;
  bool fileExistsAtPath(const std::string &path) override {
    calls.insert("exists");
    return ForwardingFileManager::fileExistsAtPath(path);
  }
  bool isReadableFileAtPath(const std::string &) override {
    calls.insert("readable");
    return false;
  }
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                    NS::ErrorSlot error) override {
    calls.insert("names");
    return ForwardingFileManager::contentsOfDirectoryAtPath(path, error);
  }
  std::optional<std::vector<NS::URL>>
  contentsOfDirectoryAtURL(const NS::URL &url, NS::DirectoryEnumerationOptions options,
                           NS::ErrorSlot error) override {
    calls.insert("children");
    return ForwardingFileManager::contentsOfDirectoryAtURL(url, options, error);
  }
  std::unique_ptr<NS::PathEnumerator> enumeratorAtPath(const std::string &path) override {
    calls.insert("paths");
    return ForwardingFileManager::enumeratorAtPath(path);
  }
  std::unique_ptr<NS::URLEnumerator>
  enumeratorAtURL(const NS::URL &url, NS::DirectoryEnumerationOptions options) override {
    calls.insert("URLs");
    return ForwardingFileManager::enumeratorAtURL(url, options);
  }
  std::optional<NS::FileAttributes> attributesOfItemAtPath(const std::string &path,
                                                           NS::ErrorSlot error) override {
    calls.insert("attributes");
    return ForwardingFileManager::attributesOfItemAtPath(path, error);
  }

  std::set<std::string> calls;
};

TEST_F(PathInspection, asksTheReceiverOrTheSharedManagerAsEachQuestionHasIt) {
  std::string file = folder.file("file", "");
  link("file", "link");
  struct Row {
    const char *question;
    std::function<void(NS::FileManager &)> ask;
    std::set<std::string> ofReceiver, ofShared;
  };
  std::vector<Row> rows = {
      {"folder", [&](auto &asked) { kw::isFileDirectoryAtPath(asked, file); }, {}, {"attributes"}},
      {"reading",
       [&](auto &asked) { kw::isFileRestrictedForReadingRecursivelyUp(asked, file); },
       {"readable", "exists"},
       {}},
      {"paths",
       [&](auto &asked) { kw::directoryContentsWithFullPathesAtPath(asked, folder.path()); },
       {"names"},
       {}},
      {"level",
       [&](auto &asked) {
         kw::contentsOfDirectoryAtURL(asked, NS::URL::fileURLWithPath(folder.path()), 1);
       },
       {"children"},
       {"URLs"}},
      {"names",
       [&](auto &asked) { kw::getContentOfPath(asked, folder.path(), true); },
       {},
       {"names"}},
      {"expression",
       [&](auto &asked) { kw::fileExistsAtPath(asked, folder.path(), expression("x").get(), 1); },
       {"paths"},
       {}},
      {"unique", [&](auto &asked) { kw::uniquePathForPath(asked, file); }, {}, {"exists"}},
      {"contents",
       [&](auto &asked) { kw::containsAnyFileAtPath(asked, folder.path(), true); },
       {"paths", "attributes"},
       {}},
  };
  for (const Row &row : rows) {
    WatchedManager receiver, shared;
    NS::ScopedOverride<NS::FileManager> override(shared);
    row.ask(receiver);
    EXPECT_EQ(receiver.calls, row.ofReceiver) << row.question;
    EXPECT_EQ(shared.calls, row.ofShared) << row.question;
  }
}

TEST_F(PathInspection, knowsFoldersFromFilesAndLinks) {
  EXPECT_TRUE(kw::isFileDirectoryAtPath(manager, directory("d")));
  EXPECT_FALSE(kw::isFileDirectoryAtPath(manager, folder.file("f", "")));
  EXPECT_FALSE(kw::isFileDirectoryAtPath(manager, link("d", "l")));
  EXPECT_FALSE(kw::isFileDirectoryAtPath(manager, folder.path("missing")));
}

TEST_F(PathInspection, findsTheRestrictionFlag) {
  kwtest::FakeFileFlags flags;
  flags.flags = {{"/restricted", 0x00080000}, {"/locked", 0x00020002}, {"/missing", -1}};
  EXPECT_TRUE(kw::isFileRestricted(manager, "/restricted"));
  EXPECT_FALSE(kw::isFileRestricted(manager, "/locked"));
  EXPECT_FALSE(kw::isFileRestricted(manager, "/missing"));
}

TEST_F(PathInspection, findsRealAttributesOfProtection) {
  std::string plain = folder.file("plain", "");
  std::string marked = folder.file("marked", "");
  if (::setxattr(marked.c_str(), "user.com.apple", "", 0, 0) != 0)
    GTEST_SKIP() << "this file system keeps no attributes of users";
  EXPECT_TRUE(kw::isFileProtectedByRootless(manager, marked));
  EXPECT_FALSE(kw::isFileProtectedByRootless(manager, plain));
  EXPECT_FALSE(kw::isFileProtectedByRootless(manager, link("marked", "l")))
      << "the link is asked, not its target";
  EXPECT_FALSE(kw::isFileProtectedByRootless(manager, folder.path("missing")));
}

TEST_F(PathInspection, neverTestsTheRootForReading) {
  class : public kwtest::ForwardingFileManager {
  public:
    Paths asked;
    bool isReadableFileAtPath(const std::string &path) override {
      asked.push_back(path);
      return true;
    }
  } watched;
  EXPECT_FALSE(kw::isFileRestrictedForReadingRecursivelyUp(watched, "/a/bc"));
  EXPECT_EQ(watched.asked, (Paths{"/a/bc", "/a"}));
  watched.asked.clear();
  for (const char *path : {"/", "", "a", "é"})
    EXPECT_FALSE(kw::isFileRestrictedForReadingRecursivelyUp(watched, path));
  EXPECT_TRUE(watched.asked.empty());
}

TEST_F(PathInspection, seesAFolderAboveThatCannotBeRead) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to become another user";
  std::string inner = folder.file("f", "");
  fs::permissions(folder.path(), fs::perms(0711));
  fs::permissions(inner, fs::perms(0644));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              if (!manager.isReadableFileAtPath(inner))
                return "the file itself is not readable";
              return kw::isFileRestrictedForReadingRecursivelyUp(manager, inner)
                         ? ""
                         : "the folder was not noticed";
            }),
            "");
  EXPECT_FALSE(kw::isFileRestrictedForReadingRecursivelyUp(manager, inner)) << "root reads all";
}

TEST_F(PathInspection, doesNotCountAMissingItemAsRestricted) {
  EXPECT_FALSE(kw::isFileRestrictedForReadingRecursivelyUp(manager, folder.path("a/b/c")));
}

TEST_F(PathInspection, listsChildrenWithFullPaths) {
  folder.file("a", "");
  folder.file(".hidden", "");
  Paths paths = kw::directoryContentsWithFullPathesAtPath(manager, folder.path());
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (Paths{folder.path(".hidden"), folder.path("a")}));
  EXPECT_TRUE(kw::directoryContentsWithFullPathesAtPath(manager, folder.path("missing")).empty());
}

TEST_F(PathInspection, listsTheChildrenOfTheItemsAtALevel) {
  directory("one/two/three");
  directory(".hidden/two");
  folder.file("one/.inside", "");
  folder.file("plain", "");
  auto at = [&](std::uint64_t level) {
    Names names;
    for (const NS::URL &url :
         kw::contentsOfDirectoryAtURL(manager, NS::URL::fileURLWithPath(folder.path()), level))
      names.insert(url.path().substr(folder.path().size()));
    return names;
  };
  EXPECT_EQ(at(1), (Names{"/one/two", "/one/.inside"}));
  EXPECT_EQ(at(2), (Names{"/one/two/three"}));
  EXPECT_EQ(at(3), Names{}) << "nothing stands in the last folder";
  EXPECT_EQ(at(0), Names{});
}

// Counts the items that a walk gives.
class CountingManager final : public kwtest::ForwardingFileManager {
public:
  std::unique_ptr<NS::URLEnumerator>
  enumeratorAtURL(const NS::URL &url, NS::DirectoryEnumerationOptions options) override {
    return std::make_unique<Walk>(ForwardingFileManager::enumeratorAtURL(url, options), given);
  }

  int given = 0;

private:
  class Walk final : public NS::URLEnumerator {
  public:
    Walk(std::unique_ptr<NS::URLEnumerator> real, int &given)
        : real_(std::move(real)), given_(given) {}

    std::optional<NS::URL> nextObject() override {
      auto item = real_->nextObject();
      given_ += item ? 1 : 0;
      return item;
    }
    std::uint64_t level() const override { return real_->level(); }
    void skipDescendants() override { real_->skipDescendants(); }

  private:
    std::unique_ptr<NS::URLEnumerator> real_;
    int &given_;
  };
};

TEST_F(PathInspection, goesNoDeeperThanTheLevel) {
  directory("one/two/three");
  CountingManager counting;
  NS::ScopedOverride<NS::FileManager> override(counting);
  kw::contentsOfDirectoryAtURL(manager, NS::URL::fileURLWithPath(folder.path()), 1);
  EXPECT_EQ(counting.given, 1);
}

TEST_F(PathInspection, givesContentAsRelativeNames) {
  directory("d/e/f");
  folder.file("a", "");
  EXPECT_EQ(kw::getContentOfPath(manager, folder.path(), false), (Names{"a", "d"}));
  EXPECT_EQ(kw::getContentOfPath(manager, folder.path(), true), (Names{"a", "d", "d/e"}));
  EXPECT_EQ(kw::getContentOfPath(manager, folder.path("missing"), true), Names{});
}

TEST_F(PathInspection, matchesOneLevelDeeperThanTheLevel) {
  directory("one/two/three");
  EXPECT_TRUE(anyMatches("/one$", 0));
  EXPECT_TRUE(anyMatches("/two$", 0));
  EXPECT_FALSE(anyMatches("/three$", 0));
  EXPECT_TRUE(anyMatches("/three$", 1));
}

TEST_F(PathInspection, matchesTheFullPathAndHiddenItems) {
  folder.file(".hidden", "");
  EXPECT_TRUE(anyMatches("keepwell-test", 0)) << "the folders above take part";
  EXPECT_TRUE(anyMatches("\\.hidden", 0));
  EXPECT_FALSE(anyMatches("nowhere", 9));
}

TEST_F(PathInspection, matchesNothingWithoutAPathOrAnExpression) {
  folder.file("a", "");
  WatchedManager watched;
  EXPECT_FALSE(kw::fileExistsAtPath(watched, std::nullopt, expression("a").get(), 1));
  EXPECT_FALSE(kw::fileExistsAtPath(watched, folder.path(), nullptr, 1));
  EXPECT_TRUE(watched.calls.empty()) << "nothing is walked for it";
  EXPECT_FALSE(kw::fileExistsAtPath(manager, folder.path("missing"), expression("a").get(), 1));
}

TEST_F(PathInspection, doesNotMatchBehindALink) {
  kwtest::ScratchFolder outside;
  outside.file("secret", "");
  link(outside.path(), "l");
  EXPECT_FALSE(anyMatches("secret", 9));
}

TEST_F(PathInspection, keepsAPathThatIsFree) {
  EXPECT_EQ(kw::uniquePathForPath(manager, folder.path("free.txt")), folder.path("free.txt"));
}

TEST_F(PathInspection, numbersAPathThatIsTaken) {
  EXPECT_EQ(kw::uniquePathForPath(manager, folder.file("report.txt", "")),
            folder.path("report 1.txt"));
  folder.file("report 1.txt", "");
  EXPECT_EQ(kw::uniquePathForPath(manager, folder.path("report.txt")), folder.path("report 2.txt"));
  EXPECT_EQ(kw::uniquePathForPath(manager, directory("folder")), folder.path("folder 1"));
  EXPECT_EQ(kw::uniquePathForPath(manager, folder.file("a.tar.gz", "")), folder.path("a.tar 1.gz"));
  EXPECT_EQ(kw::uniquePathForPath(manager, folder.file(".rc", "")), folder.path(".rc 1"));
}

TEST_F(PathInspection, countsAnEmptySubfolderAsContent) {
  directory("outer/inner");
  EXPECT_TRUE(kw::containsAnyFileAtPath(manager, folder.path("outer"), true));
  EXPECT_TRUE(kw::containsAnyFileAtPath(manager, folder.path("outer"), false));
  EXPECT_FALSE(kw::containsAnyFileAtPath(manager, folder.path("outer/inner"), true));
  EXPECT_FALSE(kw::containsAnyFileAtPath(manager, folder.path("outer/inner"), false));
}

TEST_F(PathInspection, canLeaveLinksOutOfAccount) {
  directory("links");
  link("/", "links/root");
  link("nowhere", "links/dangling");
  EXPECT_FALSE(kw::containsAnyFileAtPath(manager, folder.path("links"), true));
  EXPECT_TRUE(kw::containsAnyFileAtPath(manager, folder.path("links"), false));
  folder.file("links/z", "");
  EXPECT_TRUE(kw::containsAnyFileAtPath(manager, folder.path("links"), true));
}

TEST_F(PathInspection, findsNoContentInAnItemOtherThanAFolder) {
  EXPECT_FALSE(kw::containsAnyFileAtPath(manager, folder.file("f", "x"), false));
  EXPECT_FALSE(kw::containsAnyFileAtPath(manager, folder.path("missing"), false));
}

} // namespace
