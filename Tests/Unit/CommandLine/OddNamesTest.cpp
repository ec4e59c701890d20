// Names reach the agent, or the command's own question, byte for byte in any
// spelling: the command must never destroy a wrong file.
#include "CommandLine/CommandLine.h"

#include "Foundation/Text/Unicode.h"
#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"
#include "Support/ScratchFolder.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using kwtest::FakeAgent;
using Strings = std::vector<std::string>;

// Names that a shell, a parser or a formatter might take for something else.
const Strings oddNames = {
    "[abc]",   "[a,b]", "a,b",    "[]",     "[",        "]",          "[a",       "a]",    "[[a]]",
    "{}",      "{a}",   "{a,b}",  "(a)",    "<a>",      "'a'",        "\"a\"",    "'",     "\"",
    "\"a,b\"", "`id`",  "$HOME",  "~",      "#a",       ";",          "@file",    "@",     "%x",
    "%s%n",    "%%",    "a\nb",   "\n",     "\t",       "\r",         "\xff\xfe", "a\x80", "a=b",
    "=",       "=a",    ":",      "a:b",    "-",        "--",         "-n",       "-0",    "-y",
    "--yes",   "-rf",   "--json", "--help", "--keep=x", "--dry-run",  "---",      "-a,-b", " ",
    " a ",     "  ",    "a b",    "\\",     "\\n",      "a\\",        "\\[a\\]",  "!",     "*",
    "?",       "a*",    "true",   "false",  "remove",   "\x7f",       "\x1b[2J",  "null",  "1",
    "++",      "/a",    "a//b",   "a/",     "e\u0301",  "\u202egpj.", "|",        "&"};

// The form in which a command takes a name, and the text that the agent must
// get for it.
struct NameOfAgent {
  Strings before; // the name
  Strings after;
  std::string member;
  std::size_t place = 0; // among the request's arguments
  bool isPath = true;
};

const std::vector<NameOfAgent> namesOfAgent = {
    {{"remove", "--yes", "--"}, {}, "RemoveItemAtPath"},
    {{"shred", "--yes", "--"}, {}, "SecurelyRemoveItemAtPath"},
    {{"trash", "--"}, {}, "MoveToTrashItemAtPath"},
    {{"truncate", "--yes", "--"}, {}, "TruncateFileAtPath"},
    {{"size", "--"}, {}, "SizeOfItemAtPath"},
    {{"exists", "--"}, {}, "FileExistsAtPath"},
    {{"move", "--"}, {"/x"}, "MoveItemAtPath", 0},
    {{"move", "--", "/x"}, {}, "MoveItemAtPath", 1},
    {{"launchd", "enable", "--"}, {}, "EnableLaunchdAgentAtPath"},
    {{"launchd", "disable", "--"}, {}, "DisableLaunchdAgentAtPath"},
    {{"launchd", "remove", "--"}, {}, "RemoveLaunchdAgentAtPath"},
    {{"startup", "start", "--"}, {}, "StartStartupItem", 0, false},
    {{"startup", "stop", "--"}, {}, "StopStartupItem", 0, false},
    {{"login-item", "remove-global", "--"}, {}, "RemoveGlobalLoginItemForAppWithPath"},
    {{"login-item", "remove-sm", "--"}, {}, "RemoveSMLoginItem", 0, false},
    {{"kext", "remove", "--"}, {}, "RemoveKextAtPath"},
    {{"package", "forget", "--"}, {}, "RemovePackageWithID", 0, false},
    {{"launchd-conf", "remove-library", "--"}, {}, "RemoveLibraryFromLauchdConf", 0, false},
    {{"slim", "--yes", "--"}, {}, "SlimBinaryWithPath"},
    {{"maintenance", "periodic", "--"}, {}, "RunPeriodicScript", 0, false},
    {{"echo", "--"}, {}, "Echo", 0, false},
};

std::string whole(const std::string &name) {
  return name.starts_with('/') ? name : fs::current_path().string() + "/" + name;
}

Strings around(const Strings &before, const std::string &name, const Strings &after) {
  Strings words = before;
  words.push_back(name);
  words.insert(words.end(), after.begin(), after.end());
  return words;
}

class OddNames : public testing::Test {
protected:
  std::vector<kw::AgentMessage> sentBy(const Strings &words, const std::string &input = "") {
    FakeAgent agent;
    kw::Surroundings surroundings;
    surroundings.connect = [&](const std::string &chosen, const kw::ClientOptions &) {
      bus = chosen;
      return agent.client();
    };
    keepwell.input = input;
    status = keepwell(words, std::move(surroundings));
    return agent.sent();
  }
  // The agent's text at a place of its one request.
  std::string got(const Strings &words, const NameOfAgent &kind) {
    auto sent = sentBy(words);
    if (sent.size() != 1 || sent[0].member != kind.member)
      return "not one " + kind.member + ": " + keepwell.err.str();
    return std::get<std::string>(sent[0].arguments.at(kind.place));
  }

  kwtest::CommandRun keepwell;
  int status = 0;
  std::string bus;
};

TEST_F(OddNames, reachTheAgentByteForByte) {
  for (const NameOfAgent &kind : namesOfAgent)
    for (const std::string &name : oddNames)
      EXPECT_EQ(got(around(kind.before, name, kind.after), kind), kind.isPath ? whole(name) : name)
          << kind.member << " " << testing::PrintToString(name);
}

TEST_F(OddNames, needNoDashesBeforeThemUnlessTheyStartWithOne) {
  for (const NameOfAgent &kind : namesOfAgent)
    for (const std::string &name : oddNames) {
      if (name.starts_with('-') && name != "-")
        continue;
      Strings before = kind.before;
      before.erase(std::find(before.begin(), before.end(), "--"));
      EXPECT_EQ(got(around(before, name, kind.after), kind), kind.isPath ? whole(name) : name)
          << kind.member << " " << testing::PrintToString(name);
    }
}

TEST_F(OddNames, reachTheAgentTogether) {
  Strings words = {"remove", "--yes", "--"};
  words.insert(words.end(), oddNames.begin(), oddNames.end());
  auto sent = sentBy(words);
  ASSERT_EQ(sent.size(), oddNames.size());
  for (std::size_t index = 0; index < sent.size(); ++index)
    EXPECT_EQ(std::get<std::string>(sent[index].arguments.at(0)), whole(oddNames[index]));
}

TEST_F(OddNames, comeFromStandardInputAsTheyAre) {
  std::string input;
  for (const std::string &name : oddNames)
    input.append(name).push_back('\0');
  for (const char *command : {"remove", "shred", "trash", "truncate", "size", "exists"}) {
    auto sent = sentBy({command, "-0"}, input);
    ASSERT_EQ(sent.size(), oddNames.size()) << command;
    for (std::size_t index = 0; index < sent.size(); ++index)
      EXPECT_EQ(std::get<std::string>(sent[index].arguments.at(0)), whole(oddNames[index]));
  }
}

TEST_F(OddNames, ofArchitecturesGoToTheToolUnchanged) {
  Strings words = {"slim", "--yes", "/b"};
  words.insert(words.end(), oddNames.begin(), oddNames.end());
  auto sent = sentBy(words);
  ASSERT_EQ(sent.size(), 1u) << keepwell.err.str();
  EXPECT_EQ(std::get<Strings>(sent[0].arguments.at(1)), oddNames);
}

TEST_F(OddNames, areValuesOfOptionsUnchanged) {
  for (const std::string &name : oddNames) {
    sentBy({"--bus", name, "echo", "x"});
    EXPECT_EQ(bus, name);
    sentBy({"echo", "--bus=" + name, "x"});
    EXPECT_EQ(bus, name);
  }
}

TEST_F(OddNames, mustNotBeEmpty) {
  for (const NameOfAgent &kind : namesOfAgent) {
    if (kind.member == "Echo")
      continue; // which repeats any text
    EXPECT_TRUE(sentBy(around(kind.before, "", kind.after)).empty()) << kind.member;
    EXPECT_EQ(status, kw::ExitUsage) << kind.member;
  }
}

// Items with these names, for the commands that look for themselves.
class OddItems : public OddNames {
protected:
  void SetUp() override {
    for (const std::string &name : oddNames)
      if (name.find('/') == std::string::npos) {
        scratch.file(name, "");
        names.push_back(name);
      }
    before = fs::current_path();
    fs::current_path(scratch.path());
  }
  void TearDown() override { fs::current_path(before); }

  kwtest::ScratchFolder scratch;
  Strings names;
  fs::path before;
};

// No other name of these items exists, such as one without the brackets, so the
// answer about an item comes from the item itself.
TEST_F(OddItems, areLookedAtOnTheSpot) {
  for (const Strings &words : {Strings{"inspect", "--"},
                               {"size", "--local", "--"},
                               {"remove", "--dry-run", "--"},
                               {"shred", "-n", "--"},
                               {"trash", "-n", "--"}})
    for (const std::string &name : names) {
      Strings asked = words;
      asked.insert(asked.begin(), "--json");
      EXPECT_TRUE(sentBy(around(asked, name, {})).empty());
      bool cannotBeSent = words.size() == 3 && words[1] != "--local" && !NS::isWellFormedUTF8(name);
      EXPECT_EQ(status, cannotBeSent ? kw::ExitRefused : kw::ExitDone)
          << words[0] << " " << testing::PrintToString(name);
      std::string path = "\"path\":" + kw::jsonString(whole(name));
      EXPECT_NE(keepwell.out.str().find(path), std::string::npos) << keepwell.out.str();
      EXPECT_EQ(keepwell.out.str().find("\"items\":0,") != std::string::npos, cannotBeSent) << path;
    }
}

TEST_F(OddItems, areNotTakenForVerbs) {
  scratch.file("list", "");
  EXPECT_TRUE(sentBy({"trash", "list"}).empty());
  EXPECT_EQ(status, kw::ExitUsage);
  EXPECT_TRUE(keepwell.err.str().starts_with(
      "keepwell: there is an item called list here: write ./list for it, or ask for \"trash list\" "
      "in another folder\n"))
      << keepwell.err.str();
  auto sent = sentBy({"trash", "./list"});
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(std::get<std::string>(sent[0].arguments.at(0)), whole("./list"));
  fs::remove("list");
  EXPECT_TRUE(sentBy({"trash", "list"}).empty());
  EXPECT_EQ(status, kw::ExitDone);
}

TEST_F(OddItems, ofJobsAreReadOnTheSpot) {
  for (const std::string &name : names) {
    scratch.file(name, "<plist><dict><key>Label</key><string>x</string></dict></plist>");
    sentBy({"--json", "launchd", "info", "--", name});
    EXPECT_EQ(status, kw::ExitDone) << testing::PrintToString(name);
    EXPECT_NE(keepwell.out.str().find("\"path\":" + kw::jsonString(whole(name))),
              std::string::npos);
  }
}

std::string asPattern(const std::string &name) {
  std::string pattern;
  for (char letter : name)
    pattern += {'\\', letter};
  return pattern;
}

TEST_F(OddItems, areKeptByTheirNames) {
  for (const std::string &name : names) {
    std::string pattern = asPattern(name);
    for (const Strings &words :
         {Strings{"--json", "remove", "-n", "--keep", pattern, "--", scratch.path()},
          Strings{"--json", "remove", "-n", "--keep=" + pattern, scratch.path()}}) {
      sentBy(words);
      std::string kept = "\"kept\":[" + kw::jsonString(scratch.path(name)) + "]";
      EXPECT_NE(keepwell.out.str().find(kept), std::string::npos) << keepwell.out.str();
    }
  }
}

TEST_F(OddItems, areSearchedAndPassedOver) {
  for (const std::string &name : names) {
    fs::create_directory("in");
    fs::create_directory("in/" + name);
    scratch.file("in/" + name + "/needle", "");
    for (const Strings &words : {Strings{"--json", "find", "needle", "--under", "in/" + name},
                                 Strings{"--json", "find", "--under=in/" + name, "--", "needle"}}) {
      sentBy(words);
      EXPECT_NE(keepwell.out.str().find(kw::jsonString(whole("in/" + name + "/needle"))),
                std::string::npos)
          << keepwell.out.str();
    }
    sentBy({"--json", "find", "--exclude", name, "--under", "in", "--", "needle"});
    EXPECT_NE(keepwell.out.str().find("\"paths\":[]"), std::string::npos) << keepwell.out.str();
    sentBy({"--json", "find", "--exclude=" + name, "--under", "in", "needle"});
    EXPECT_NE(keepwell.out.str().find("\"paths\":[]"), std::string::npos) << keepwell.out.str();
    fs::remove_all("in");
  }
}

TEST_F(OddItems, areTheSearchedText) {
  for (const std::string &name : names) {
    sentBy({"--json", "find", "--under", ".", "--", name});
    EXPECT_EQ(status, kw::ExitDone) << keepwell.err.str();
    EXPECT_NE(keepwell.out.str().find("\"name\":" + kw::jsonString(name)), std::string::npos)
        << keepwell.out.str();
  }
}

} // namespace
