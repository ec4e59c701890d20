// The commands that need no agent, from their arguments to their output.
#include "CommandLine/CommandLine.h"

#include "Foundation/Files/FileFlags.h"
#include "Foundation/Values/Date.h"

#include "Support/CommandRun.h"
#include "Support/FakeFTS.h"
#include "Support/FakeItemServices.h"
#include "Support/ScopedVariable.h"
#include "Support/ScratchFolder.h"
#include "Support/SpecialItems.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class LocalCommands : public ::testing::Test {
protected:
  int run(const Strings &words) {
    kw::Surroundings surroundings;
    surroundings.connect = [](const std::string &,
                              const kw::ClientOptions &) -> std::unique_ptr<kw::Client> {
      ADD_FAILURE() << "a local command asked for the agent";
      return nullptr;
    };
    surroundings.outIsTerminal = onTerminal;
    return keepwell(words, std::move(surroundings));
  }
  bool printed(const std::string &text) const { return out.str().find(text) != std::string::npos; }

  bool onTerminal = false;
  kwtest::ScratchFolder folder;
  kwtest::CommandRun keepwell;
  std::ostringstream &out = keepwell.out;
  std::ostringstream &err = keepwell.err;
};

using Find = LocalCommands;
using Inspect = LocalCommands;

TEST_F(Find, printsEachPathOnce) {
  fs::create_directory(folder.path("Foo"));
  folder.file("Foo/foo.txt", "");
  folder.file("other", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path()}), 0);
  EXPECT_EQ(out.str(), folder.path("Foo") + "\n" + folder.path("Foo/foo.txt") + "\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(Find, printsTheWalkAsItIsOnDemand) {
  fs::create_directory(folder.path("Foo"));
  EXPECT_EQ(run({"find", "foo", "--under", folder.path(), "--raw"}), 0);
  EXPECT_EQ(out.str(), folder.path("Foo") + "\n" + folder.path("Foo") + "\n");
}

TEST_F(Find, canStayShallowMatchWordsAndExclude) {
  fs::create_directory(folder.path("bar"));
  folder.file("bar/foo", "");
  folder.file("foo bar", "");
  folder.file("food", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path(), "--shallow", "--words"}), 0);
  EXPECT_EQ(out.str(), folder.path("foo bar") + "\n");
  EXPECT_EQ(run({"find", "--exclude", "bar", "foo", "--under", folder.path(), "--exclude", "food"}),
            0);
  EXPECT_EQ(out.str(), folder.path("foo bar") + "\n");
}

TEST_F(Find, excludesNothingByTheNameOfTheFolderItself) {
  fs::create_directory(folder.path("bar"));
  folder.file("bar/foo", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("bar"), "--exclude", "bar"}), 0);
  EXPECT_EQ(out.str(), folder.path("bar/foo") + "\n");
  EXPECT_EQ(
      run({"find", "--largest", "1", "-0", "--under", folder.path("bar"), "--exclude", "bar"}), 0);
  EXPECT_EQ(out.str(), folder.path("bar/foo") + std::string(1, '\0'));
}

TEST_F(Find, passesOverNumberedCopiesUnlessAskedForAll) {
  for (const char *name : {"foo", "foo 2", "foo10.conf"})
    folder.file(name, "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path()}), 0);
  EXPECT_EQ(out.str(), folder.path("foo") + "\n");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path(), "--all"}), 0);
  for (const char *name : {"foo", "foo 2", "foo10.conf"})
    EXPECT_TRUE(printed(folder.path(name) + "\n")) << out.str();
  EXPECT_EQ(run({"find", "--help"}), 0);
  EXPECT_TRUE(printed("numbered copies")) << out.str();
}

TEST_F(Find, hasAnItemOfTheFoldersOwnNameWithAll) {
  fs::create_directory(folder.path("foo"));
  folder.file("foo/foo", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("foo")}), 0);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("foo"), "--all"}), 0);
  EXPECT_EQ(out.str(), folder.path("foo/foo") + "\n");
}

TEST_F(Find, addsUpSeveralItemsForAPerson) {
  std::string file = folder.file("a", "");
  const Strings words{"find", "--largest", "2", "--under", folder.path()};
  onTerminal = true;
  EXPECT_EQ(run(words), 0);
  EXPECT_EQ(out.str(), "Zero KB\t" + file + "\n");
  folder.file("b", "");
  EXPECT_EQ(run(words), 0);
  EXPECT_TRUE(out.str().ends_with("Zero KB\tin 2 items\n")) << out.str();
  EXPECT_EQ(run({"find", "--largest", "2", "--under", folder.path(), "-0"}), 0);
  EXPECT_FALSE(printed("in 2 items")) << "it is no path";
  onTerminal = false;
  EXPECT_EQ(run(words), 0);
  EXPECT_FALSE(printed("in 2 items")) << "a program adds up by itself";
}

TEST_F(Find, endsPathsWithANul) {
  folder.file("foo\nbar", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path(), "-0"}), 0);
  EXPECT_EQ(out.str(), folder.path("foo\nbar") + std::string(1, '\0'));
}

TEST_F(LocalCommands, tellAProgramThatBrowsingIsForAPerson) {
  EXPECT_EQ(run({"browse", "--json", folder.path("missing")}), 2);
  EXPECT_EQ(out.str(), "{\"success\":false,\"error\":{\"kind\":\"usage\",\"description\":"
                       "\"browse is for a person and prints no JSON\"}}\n");
}

TEST_F(Inspect, endsLinesWithNuls) {
  std::string file = folder.file("a\nb", "");
  onTerminal = false;
  EXPECT_EQ(run({"inspect", "-0", file}), 0);
  EXPECT_TRUE(out.str().starts_with(file + std::string("\0  kind:       file\0", 20))) << out.str();
}

TEST_F(Find, printsJSON) {
  folder.file("foo", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path(), "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"find\",\"name\":\"foo\",\"path\":\"" + folder.path() +
                           "\",\"success\":true,\"paths\":[\"" + folder.path("foo") + "\"]}\n");
  EXPECT_EQ(run({"find", "--largest", "1", "--under", folder.path(), "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"find\",\"path\":\"" + folder.path() +
                           "\",\"success\":true,\"found\":[{\"path\":\"" + folder.path("foo") +
                           "\",\"bytes\":0}]}\n");
}

TEST_F(Find, printsTidyPathsForAFolderWithDotsBehindIt) {
  folder.file("foo", "");
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("././/")}), 0);
  EXPECT_EQ(out.str(), folder.path("foo") + "\n");
}

TEST_F(Find, searchesTheFolderThatALinkLeadsTo) {
  fs::create_directory(folder.path("real"));
  folder.file("real/foo", "x");
  fs::create_directory_symlink("real", folder.path("link"));
  for (const char *link : {"link", "link/"}) {
    EXPECT_EQ(run({"find", "foo", "--under", folder.path(link)}), 0);
    EXPECT_EQ(out.str(), folder.path("link/foo") + "\n") << link;
    EXPECT_EQ(run({"find", "--largest", "1", "-0", "--under", folder.path(link)}), 0);
    EXPECT_EQ(out.str(), folder.path("link/foo") + '\0') << link;
  }
}

TEST_F(Find, succeedsWithNothingFound) {
  EXPECT_EQ(run({"find", "foo", "--under", folder.path()}), 0);
  EXPECT_EQ(out.str(), "");
}

TEST_F(Find, failsForAFolderThatIsNotThere) {
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("missing")}), 1);
  EXPECT_EQ(out.str(), "");
  EXPECT_NE(err.str().find(folder.path("missing") + ": No such file"), std::string::npos)
      << err.str();
  EXPECT_EQ(run({"find", "foo", "--under", folder.path("missing"), "--json"}), 1);
  EXPECT_TRUE(printed("\"success\":false,\"error\":{"));
}

TEST_F(Find, refusesPathsThatTheSearchWouldRefuse) {
  EXPECT_EQ(run({"find", "", "--under", folder.path()}), 2);
  EXPECT_EQ(run({"find", "foo", "--under", "/"}), 2);
  EXPECT_EQ(run({"find", "foo", "--under", "//"}), 2);
  EXPECT_EQ(run({"find", "foo", "--under", "/./"}), 2);
  EXPECT_EQ(run({"find", "foo", "--under", ""}), 2);
  for (const Strings &words : std::initializer_list<Strings>{{},
                                                             {"foo", "--empty"},
                                                             {"foo", "--shallow"},
                                                             {"foo", "--raw"},
                                                             {"foo", "--exclude", "bar"},
                                                             {"--empty", "--largest", "1"},
                                                             {"--largest", "0"},
                                                             {"--older-than", "soon"}}) {
    Strings line{"find"};
    line.insert(line.end(), words.begin(), words.end());
    EXPECT_EQ(run(line), 2) << err.str();
  }
}

TEST_F(Find, tellsTheLargestFilesOnceEach) {
  fs::create_directory(folder.path("in"));
  std::string large = folder.file("in/large", std::string(300'000, 'x'));
  folder.file("middle", std::string(100'000, 'x'));
  folder.file("small", "x");
  fs::create_hard_link(large, folder.path("again"));
  EXPECT_EQ(run({"find", "--largest", "2", "--under", folder.path(), "-0"}), 0);
  std::string first = out.str().substr(0, out.str().find('\0'));
  EXPECT_TRUE(first == large || first == folder.path("again")) << first;
  EXPECT_EQ(out.str(), first + '\0' + folder.path("middle") + '\0');
  EXPECT_EQ(run({"find", "--largest", "1", "--under", folder.path(), "--exclude", "in", "--exclude",
                 "again"}),
            0);
  EXPECT_EQ(out.str(), "102 KB\t" + folder.path("middle") + "\n");
}

// Otherwise a part would look like the whole.
TEST_F(Find, failsWhenItsWalkIsGivenUp) {
  for (const Strings &words : {Strings{"--largest", "1"}, {"--empty"}}) {
    kwtest::FakeFTS walks;
    walks.add(folder.path("file"), NS::FTSInfo::F, walks.top);
    walks.failure = ENOMEM;
    Strings line{"find", "--under", folder.path()};
    line.insert(line.end(), words.begin(), words.end());
    EXPECT_EQ(run(line), 1);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), "keepwell: " + folder.path() + ": Cannot allocate memory\n");
  }
}

TEST_F(Find, tellsFilesUnchangedForLong) {
  using namespace std::chrono_literals;
  std::string old = folder.file("old", "x");
  folder.file("new", "x");
  fs::last_write_time(old, fs::file_time_type::clock::now() - 48h);
  fs::create_directory(folder.path("folder"));
  fs::last_write_time(folder.path("folder"), fs::file_time_type::clock::now() - 48h);
  EXPECT_EQ(run({"find", "--older-than", "1d", "--under", folder.path(), "-0"}), 0);
  EXPECT_EQ(out.str(), old + '\0');
  EXPECT_EQ(run({"find", "--older-than", "3d", "--under", folder.path(), "-0"}), 0);
  EXPECT_EQ(out.str(), "");
}

TEST_F(Find, tellsFoldersThatHoldNothing) {
  fs::create_directories(folder.path("empty/within/deep"));
  fs::create_directories(folder.path("full/empty"));
  folder.file("full/file", "");
  EXPECT_EQ(run({"find", "--empty", "--under", folder.path(), "-0"}), 0);
  std::string one = folder.path("empty") + '\0', other = folder.path("full/empty") + '\0';
  EXPECT_TRUE(out.str() == one + other || out.str() == other + one) << out.str();
  EXPECT_EQ(run({"find", "--empty", "--under", folder.path("empty"), "-0"}), 0);
  EXPECT_EQ(out.str(), folder.path("empty/within") + '\0');
  EXPECT_EQ(run({"find", "--empty", "--under", folder.path(), "-0", "--exclude", "within"}), 0);
  EXPECT_EQ(out.str(), other);
}

TEST_F(Find, tellsTheLeftoversOfAnApplicationInTheHome) {
  for (const char *name : {".config/editor", ".cache/Editor", ".local/share/applications",
                           ".config/other/editor", ".editor-history"})
    fs::create_directories(folder.path(name));
  folder.file(".local/share/applications/editor.desktop", "");
  std::string file = folder.file(".cache/Editor/data", std::string(300'000, 'x'));
  kwtest::ScopedVariable home("HOME", folder.path());
  kwtest::ScopedVariable data("XDG_DATA_HOME", "");
  kwtest::ScopedVariable cache("XDG_CACHE_HOME", "");
  EXPECT_EQ(run({"find", "editor", "-0"}), 0);
  for (const char *name : {".editor-history", ".config/editor", ".cache/Editor",
                           ".local/share/applications/editor.desktop"}) {
    EXPECT_TRUE(printed(folder.path(name) + '\0')) << name << " is not in " << out.str();
  }
  EXPECT_FALSE(printed(folder.path(".config/other")));
  EXPECT_EQ(run({"--json", "find", "editor"}), 0);
  EXPECT_TRUE(out.str().starts_with("{\"command\":\"find\",\"name\":\"editor\",\"success\":true,"
                                    "\"found\":[{\"path\":"))
      << out.str();
  EXPECT_TRUE(printed("\"path\":\"" + folder.path(".cache/Editor") + "\",\"bytes\":3"))
      << out.str();
}

TEST_F(Find, looksForLeftoversInTheFoldersThatTheUserChose) {
  for (const char *name : {"data/editor", "quick/editor", ".cache"})
    fs::create_directories(folder.path(name));
  kwtest::ScopedVariable home("HOME", folder.path());
  kwtest::ScopedVariable data("XDG_DATA_HOME", folder.path("data"));
  kwtest::ScopedVariable cache("XDG_CACHE_HOME", folder.path("quick"));
  EXPECT_EQ(run({"find", "editor", "-0"}), 0);
  for (const char *name : {"data/editor", "quick/editor"})
    EXPECT_TRUE(printed(folder.path(name) + '\0')) << name << " is not in " << out.str();
  EXPECT_NE(run({"find", "cache", "-0"}), 2);
  EXPECT_FALSE(printed(folder.path(".cache"))) << "a place of many is nobody's leftover";
}

// Counts how often written text is flushed.
class Flushes : public std::stringbuf {
public:
  int count = 0;

protected:
  int sync() override {
    ++count;
    return 0;
  }
};

TEST_F(Find, handsEachMatchOverAsItIsFound) {
  for (const char *name : {"foo-a", "foo-b", "foo-c"})
    folder.file(name, "");
  Flushes flushes;
  std::ostream answers(&flushes);
  kw::Surroundings surroundings;
  surroundings.out = &answers;
  surroundings.err = &err;
  surroundings.hasTool = surroundings.hasFile = [](const std::string &) { return true; };
  const char *words[] = {"keepwell", "find", "foo", "--under", folder.path().c_str()};
  EXPECT_EQ(kw::runCommandLine(5, words, surroundings), 0);
  EXPECT_EQ(flushes.count, 4) << "three matches and the end";
}

TEST_F(Find, showsControlCharactersOfNames) {
  folder.file("foo\n\x1b[2J", "");
  onTerminal = true;
  EXPECT_EQ(run({"find", "foo", "--under", folder.path()}), 0);
  EXPECT_EQ(out.str().find('\x1b'), std::string::npos);
  EXPECT_EQ(out.str().find('\n'), out.str().size() - 1);
}

TEST_F(Inspect, tellsAboutAFile) {
  EXPECT_EQ(run({"inspect", folder.file(".profile", "")}), 0);
  EXPECT_TRUE(out.str().starts_with(folder.path(".profile") + "\n  kind:       file\n"))
      << out.str();
  EXPECT_TRUE(printed("  flags:      none\n  protection: none\n  hidden:     no\n"));
  EXPECT_TRUE(printed("  readable:   yes\n"));
  EXPECT_FALSE(printed("original:"));
}

TEST_F(Inspect, tellsItsThreeTimes) {
  std::string file = folder.file("f", "");
  struct timespec times[2] = {{1'000'000'000, 0}, {1'100'000'000, 0}}; // of use and of change
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(run({"--json", "inspect", file}), 0);
  std::smatch created;
  std::string text = out.str();
  EXPECT_TRUE(text.starts_with("{\"command\":\"inspect\",\"path\":\"" + file +
                               "\",\"success\":true,\"kind\":\"file\",\"flags\":"))
      << text;
  ASSERT_TRUE(std::regex_search(text, created, std::regex("\"created\":([0-9]+)"))) << text;
  std::int64_t seconds = std::stoll(created[1]);
  std::string moment = "unknown";
  if (seconds != 0)
    moment = NS::Date::dateWithTimeIntervalSince1970(static_cast<double>(seconds))->description();
  EXPECT_EQ(run({"inspect", file}), 0);
  EXPECT_TRUE(printed("  created:    " + moment +
                      "\n"
                      "  modified:   2004-11-09 11:33:20 +0000\n"
                      "  last used:  2001-09-09 01:46:40 +0000\n"))
      << out.str();
}

TEST_F(Inspect, tellsTheKindOfAFolder) {
  fs::create_directory(folder.path("X.photoslibrary"));
  EXPECT_EQ(run({"inspect", folder.path(), folder.path("X.photoslibrary")}), 0);
  EXPECT_TRUE(printed("  kind:       folder (ordinary)\n")) << out.str();
  EXPECT_TRUE(printed("  kind:       folder (photos library)\n")) << out.str();
  kwtest::FakeLaunchServices registry;
  registry.items[folder.path()] = {0, "APPL"};
  EXPECT_EQ(run({"inspect", folder.path(), "--json"}), 0);
  EXPECT_TRUE(printed("\"kind\":\"folder\",\"folderType\":\"application\"")) << out.str();
}

TEST_F(Inspect, tellsTheKindOfAnItemWithoutContents) {
  ASSERT_TRUE(kwtest::makeSocket(folder.path("socket")));
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(run({"inspect", folder.path("socket"), folder.path("fifo"), "/dev/null"}), 0);
  EXPECT_TRUE(printed("  kind:       socket\n")) << out.str();
  EXPECT_TRUE(printed("  kind:       other\n")) << out.str();
  EXPECT_TRUE(printed("  kind:       character device\n")) << out.str();
  if (kwtest::makeBlockDevice(folder.path("block"))) {
    EXPECT_EQ(run({"inspect", folder.path("block")}), 0);
    EXPECT_TRUE(printed("  kind:       block device\n")) << out.str();
  }
}

TEST_F(Inspect, tellsTheTargetOfALink) {
  std::string file = folder.file("f", "");
  fs::create_symlink(file, folder.path("l"));
  EXPECT_EQ(run({"inspect", folder.path("l")}), 0);
  EXPECT_TRUE(printed("  kind:       link\n"));
  EXPECT_TRUE(printed("  original:   " + file + "\n"));
  fs::create_symlink("f", folder.path("relative"));
  EXPECT_EQ(run({"inspect", folder.path("relative")}), 0);
  EXPECT_TRUE(printed("  original:   " + file + "\n")) << out.str();
  fs::create_symlink("nowhere", folder.path("dangling"));
  EXPECT_EQ(run({"inspect", folder.path("dangling")}), 0);
  EXPECT_FALSE(printed("original:"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(Inspect, tellsOfProtectionAndHiding) {
  class : public NS::FileFlags {
  public:
    int status(const std::string &, NS::FileStatus &status) override {
      status.flags = NS::SF_RESTRICTED_FLAG | NS::UF_HIDDEN_FLAG;
      return 0;
    }
    int clear(const std::string &, std::uint32_t) override { return -1; }
    void clearBeneath(const std::string &, std::uint32_t, const FailureHandler &) override {}
  } flags;
  NS::ScopedOverride<NS::FileFlags> override(flags);
  kwtest::FakeExtendedAttributes attributes;
  attributes.names = std::string("com.apple.rootless\0", 19);
  EXPECT_EQ(run({"inspect", folder.path()}), 0);
  EXPECT_TRUE(printed("  flags:      hidden, restricted\n")) << out.str();
  EXPECT_TRUE(printed("  protection: restricted, rootless\n"));
  EXPECT_TRUE(printed("  hidden:     yes\n"));
  EXPECT_TRUE(printed("  created:    unknown\n")) << "the volume keeps no such time";
  EXPECT_EQ(run({"inspect", folder.path(), "--json"}), 0);
  EXPECT_TRUE(printed("\"flags\":[\"hidden\",\"restricted\"],\"restricted\":true,"
                      "\"rootless\":true,\"hidden\":true,\"readable\":true,\"created\":0,"))
      << out.str();
}

TEST_F(Inspect, goesOnPastAMissingItemAndFailsInTheEnd) {
  std::string file = folder.file("f", "");
  EXPECT_EQ(run({"inspect", folder.path("missing"), file}), 1);
  EXPECT_TRUE(printed(file + "\n"));
  EXPECT_TRUE(err.str().find(folder.path("missing") + ": ") != std::string::npos) << err.str();
}

using LocalSize = LocalCommands;

TEST_F(LocalSize, measuresOccupiedOrLogicalSizesWithoutTheAgent) {
  std::string sparse = folder.file("sparse", "");
  fs::resize_file(sparse, 1024 * 1024);
  EXPECT_EQ(run({"size", "--local", "--bytes", sparse}), 0);
  EXPECT_EQ(out.str(), "0\t" + sparse + "\n");
  EXPECT_EQ(run({"size", "--local", "--logical", "--bytes", sparse}), 0);
  EXPECT_EQ(out.str(), "1048576\t" + sparse + "\n");
  EXPECT_EQ(run({"size", "--local", "--bytes", sparse}), 0);
  EXPECT_EQ(out.str(), "0\t" + sparse + "\n") << "the mode must not outlast its command";
}

TEST_F(LocalSize, countsNoFolderInBulk) {
  fs::resize_file(folder.file("sparse", ""), 1024 * 1024);
  EXPECT_EQ(run({"size", "--local", "--bulk", "--bytes", folder.path()}), 0);
  EXPECT_EQ(out.str(), "1048576\t" + folder.path() + "\n");
}

TEST_F(LocalSize, isPrintedInEitherBase) {
  fs::resize_file(folder.file("sparse", ""), 1024 * 1024);
  EXPECT_EQ(run({"size", "--local", "--bulk", folder.path()}), 0);
  EXPECT_EQ(out.str(), "1 MB\t" + folder.path() + "\n");
  fs::resize_file(folder.path("sparse"), 1024 * 1024 * 3 / 2);
  EXPECT_EQ(run({"size", "--local", "--bulk", folder.path()}), 0);
  EXPECT_EQ(out.str(), "1.6 MB\t" + folder.path() + "\n");
  EXPECT_EQ(run({"size", "--local", "--bulk", "--base2", folder.path()}), 0);
  EXPECT_EQ(out.str(), "1.5 MB\t" + folder.path() + "\n");
}

TEST_F(LocalSize, ofAMissingItemIsRefused) {
  EXPECT_EQ(run({"size", "--local", folder.path("missing")}), 1);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "keepwell: " + folder.path("missing") + ": there is nothing there\n");
}

TEST_F(LocalSize, hasModesThatTheAgentHasNot) {
  EXPECT_EQ(run({"size", "--logical", folder.path()}), 2);
  EXPECT_EQ(run({"size", "--bulk", folder.path()}), 2);
}

} // namespace
