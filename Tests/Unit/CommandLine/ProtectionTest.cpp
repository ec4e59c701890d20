// Items that are left alone unless their path is typed, and the display before
// the consent to a removal.
#include "Support/AnsweredCommand.h"
#include "Support/PrivateMounts.h"
#include "Support/ScopedVariable.h"

#include "CommandLine/ProtectedPaths.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using kwtest::Strings;

TEST(Protection, isOfTheFoldersThatASystemLivesOn) {
  for (const char *path : {"/", "//", "/.", "/usr", "/usr/", "/usr/../usr", "/etc/.", "/usr/bin/..",
                           "/usr/share", "/var/lib", "/home", "/tmp", "/proc"})
    EXPECT_TRUE(kw::protectionOf(path)) << path;
  for (const char *path :
       {"/usr/share/doc", "/etc/passwd", "/var/lib/misc", "/no/such", "/nothing", "/dev/null", ""})
    EXPECT_FALSE(kw::protectionOf(path)) << path;
}

TEST(Protection, isOfTheHomeAndTheFoldersThatHoldIt) {
  kwtest::ScratchFolder scratch;
  fs::create_directories(scratch.path("homes/me/sub"));
  {
    kwtest::ScopedVariable home("HOME", scratch.path("homes/me"));
    EXPECT_TRUE(kw::protectionOf(scratch.path("homes/me")));
    EXPECT_TRUE(kw::protectionOf(scratch.path("homes")));
    EXPECT_FALSE(kw::protectionOf(scratch.path("homes/me/sub")));
  }
  EXPECT_FALSE(kw::protectionOf(scratch.path("homes/me")));
}

TEST(Protection, seesThroughLinksOfTheFoldersAbove) {
  kwtest::ScratchFolder scratch;
  fs::create_directory_symlink("/", scratch.path("root"));
  EXPECT_TRUE(kw::protectionOf(scratch.path("root/usr")));
  EXPECT_TRUE(kw::protectionOf(scratch.path("root/usr/share")));
  EXPECT_TRUE(kw::protectionOf(scratch.path("root/.")));
  EXPECT_FALSE(kw::protectionOf(scratch.path("root"))) << "the link itself";
}

TEST(Protection, isOfASecondMountOfSuchAFolder) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  std::string mount = scratch.path("second");
  fs::create_directory(mount);
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount("/usr", mount))
                return "no mount";
              if (!kw::protectionOf(mount) || !kw::protectionOf(mount + "/share"))
                return "not protected";
              return kw::protectionOf(mount + "/share/doc") ? "too much is protected" : "";
            }),
            "");
}

class Protected : public kwtest::AnsweredCommand {
protected:
  // A person who types this text.
  void answerWith(const std::string &text) {
    ask = [this, text](const std::string &question) -> std::optional<std::string> {
      questions.push_back(question);
      return text;
    };
  }
  Strings questions;
};

// It needs no protection, since it changes no folder.
TEST_F(Protected, foldersAreAskedAboutByTruncate) {
  kwtest::ScopedVariable home("HOME", scratch.path());
  answerWith("n");
  EXPECT_EQ(run({"truncate", scratch.path()}), 1);
  ASSERT_EQ(questions.size(), 1u);
  EXPECT_NE(questions[0].find("Truncate " + scratch.path() + ": 2 items, "), std::string::npos)
      << questions[0];
}

TEST_F(Protected, foldersAreLeftAloneByEachCommand) {
  for (const Strings &words :
       std::initializer_list<Strings>{{"remove", "/usr/share"},
                                      {"remove", "/var/lib", "--keep", "dpkg"},
                                      {"remove", "-n", "/usr/share"},
                                      {"remove", "--yes", "/usr/../usr/share/"},
                                      {"shred", "/usr/share"},
                                      {"trash", "/usr/share"},
                                      {"move", "/usr/share", "/nowhere"}}) {
    EXPECT_EQ(run(words), 1) << words.front();
    EXPECT_NE(err.str().find(" is protected; see --force-protected\n"), std::string::npos)
        << err.str();
    EXPECT_TRUE(record.requests.empty()) << words.front();
  }
  input = "/usr/share" + std::string(1, '\0') + item + std::string(1, '\0');
  EXPECT_EQ(run({"remove", "-0"}), 1);
  EXPECT_EQ(record.requests, Strings{"RemoveItemAtPath " + item});
}

TEST_F(Protected, foldersAreToldToProgramsToo) {
  EXPECT_EQ(run({"--json", "remove", "/usr/share"}), 1);
  EXPECT_EQ(out.str(),
            "{\"command\":\"remove\",\"path\":\"/usr/share\",\"success\":false,\"error\":"
            "{\"kind\":\"protected\",\"description\":\"/usr/share is protected; see "
            "--force-protected\"}}\n");
}

TEST_F(Protected, foldersAddNothingToADryRun) {
  EXPECT_EQ(run({"remove", "-n", "/usr/share"}), 1);
  EXPECT_EQ(out.str(), "0 items, Zero KB on disk, Zero KB would be freed\n");
}

TEST_F(Protected, foldersGoOnceTheirPathIsTyped) {
  answerWith("y");
  EXPECT_EQ(run({"trash", "--force-protected", "/usr/share/"}), 1);
  EXPECT_EQ(questions, Strings{"/usr/share/ is protected. Trash it with all that it holds? Type "
                               "its path: "});
  EXPECT_EQ(err.str(), "keepwell: not confirmed; nothing was done\n");
  EXPECT_TRUE(record.requests.empty());
  answerWith("/usr/share/");
  EXPECT_EQ(run({"trash", "--force-protected", "/usr/share/"}), 0);
  EXPECT_EQ(record.requests, Strings{"MoveToTrashItemAtPath /usr/share/"});
  EXPECT_EQ(run({"move", "--force-protected", "/usr/share/", "/x"}), 0);
  EXPECT_EQ(record.requests, Strings{"MoveItemAtPath /usr/share/ /x"});
}

TEST_F(Protected, foldersStayWithoutAPersonToAsk) {
  EXPECT_EQ(run({"remove", "--yes", "--force-protected", "/usr/share"}), 1);
  EXPECT_NE(err.str().find("nothing was done"), std::string::npos);
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(Protected, preparesAPersonWithTheLargestItems) {
  fs::create_directory(scratch.path("tree"));
  for (int number = 1; number <= 12; ++number)
    scratch.file("tree/" + std::to_string(number),
                 std::string(static_cast<std::size_t>(number) * 10'000, 'x'));
  answerWith("n");
  EXPECT_EQ(run({"remove", scratch.path("tree")}), 1);
  ASSERT_EQ(questions.size(), 1u);
  std::istringstream lines(questions.front());
  Strings found;
  for (std::string line; std::getline(lines, line);)
    found.push_back(line);
  ASSERT_EQ(found.size(), 11u) << questions.front();
  EXPECT_TRUE(found[0].ends_with("tree/12")) << found[0];
  EXPECT_TRUE(found[9].ends_with("tree/3")) << found[9];
  EXPECT_TRUE(found[10].starts_with("Remove " + scratch.path("tree") + ": 13 items, "))
      << found[10];
  EXPECT_EQ(run({"remove", "-n", scratch.path("tree")}), 0);
  EXPECT_NE(out.str().find("tree/12\n"), std::string::npos);
  EXPECT_EQ(out.str().find("tree/2\n"), std::string::npos);
}

TEST_F(Protected, tellsTheFreedBytesInTheEnd) {
  onTerminal = true;
  fs::create_directory(scratch.path("tree"));
  scratch.file("tree/a", "text");
  answerWith("y");
  EXPECT_EQ(run({"remove", scratch.path("tree"), item}), 0);
  EXPECT_TRUE(out.str().ends_with("\n3 items, 8 KB freed, 0.0 s\n")) << out.str();
  EXPECT_EQ(run({"remove", "--yes", scratch.path("tree"), item}), 0);
  EXPECT_TRUE(out.str().ends_with("\n2 paths done, 0.0 s\n")) << out.str();
  EXPECT_EQ(run({"remove", "--yes", item}), 0);
  EXPECT_EQ(out.str(), "Removed " + item + "\n");
  onTerminal = false;
  EXPECT_EQ(run({"remove", scratch.path("tree"), item}), 0);
  EXPECT_EQ(out.str().find("freed"), std::string::npos);
}

TEST_F(Protected, triesCuttingAndMovingWithoutDoingIt) {
  std::string file = scratch.file("file", std::string(5000, 'x'));
  EXPECT_EQ(run({"truncate", "-n", file}), 0);
  EXPECT_EQ(out.str(), "Would truncate " + file + ", freeing 8 KB\n");
  EXPECT_EQ(run({"truncate", "-n", scratch.path()}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + scratch.path() + " could not be truncated: Is a directory\n");
  EXPECT_EQ(run({"move", "-n", file, scratch.path("there")}), 0);
  EXPECT_EQ(out.str(), "Would move " + file + " to " + scratch.path("there") + ": 1 item, 8 KB\n");
  EXPECT_EQ(run({"move", "-n", file, item}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + file + " could not be moved: there is already an item at " +
                           item + "\n");
  EXPECT_EQ(run({"move", "-n", "/no/such", item}), 1);
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(Protected, tellsProgramsWhatCuttingAndMovingWouldDo) {
  std::string file = scratch.file("file", std::string(5000, 'x'));
  EXPECT_EQ(run({"--json", "truncate", "-n", file}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"truncate\",\"path\":\"" + file +
                           "\",\"dryRun\":true,\"success\":true,\"freed\":8192}\n");
  EXPECT_EQ(run({"--json", "move", "-n", file, "/no/such"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"move\",\"path\":\"" + file +
                           "\",\"destination\":\"/no/such\",\"dryRun\":true,"
                           "\"success\":true,\"items\":1,\"allocated\":8192}\n");
}

} // namespace
