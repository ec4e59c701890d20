// The program from its arguments to its output and exit status, with a client
// that answers as the test says.
#include "Support/AnsweredCommand.h"
#include "Support/ForkedChild.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

using kw::ClientError;
using kwtest::Strings;
using CommandLineTest = kwtest::AnsweredCommand;

TEST_F(CommandLineTest, repeatsTheAgentsText) {
  EXPECT_EQ(run({"echo", "hello"}), 0);
  EXPECT_EQ(out.str(), "hello\n");
  EXPECT_EQ(record.requests, Strings{"Echo hello"});
  EXPECT_EQ(run({"echo", "hello", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"echo\",\"success\":true,\"text\":\"hello\"}\n");
}

TEST_F(CommandLineTest, isNotContentWithAnotherEcho) {
  record.echo = "something else";
  EXPECT_EQ(run({"echo", "hello"}), 1);
}

struct Row {
  const char *command;
  const char *member;
  const char *done;
  const char *failed;
};

TEST_F(CommandLineTest, tellsTheOutcomeForAnItem) {
  for (auto [command, member, done, failed] :
       {Row{"remove", "RemoveItemAtPath", "Removed {}\n", "keepwell: {} could not be removed\n"},
        Row{"shred", "SecurelyRemoveItemAtPath", "Shredded {}\n",
            "keepwell: {} could not be shredded\n"},
        Row{"truncate", "TruncateFileAtPath", "Truncated {}\n",
            "keepwell: {} could not be truncated\n"},
        Row{"trash", "MoveToTrashItemAtPath", "Moved {} to the Trash\n",
            "keepwell: {} could not be moved to the Trash\n"}}) {
    record.success = true;
    EXPECT_EQ(run({command, item}), 0) << command;
    EXPECT_EQ(out.str(), fmt::format(fmt::runtime(done), item));
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(record.requests, Strings{std::string(member) + " " + item});
    record.success = false;
    EXPECT_EQ(run({command, item}), 1) << command;
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), fmt::format(fmt::runtime(failed), item));
  }
}

TEST_F(CommandLineTest, givesTheReasonOfTheAgent) {
  record.success = false;
  record.error = NS::fileError(13, "/a", NS::FileAccess::Writing);
  EXPECT_EQ(run({"remove", "/a"}), 1);
  EXPECT_NE(err.str().find("/a could not be removed: "), std::string::npos) << err.str();
  EXPECT_EQ(run({"--json", "remove", "/a"}), 1);
  EXPECT_EQ(err.str(), "");
  EXPECT_NE(out.str().find(
                "{\"command\":\"remove\",\"path\":\"/a\",\"success\":false,"
                "\"error\":{\"kind\":\"failed\",\"domain\":\"NSCocoaErrorDomain\",\"code\":513,"),
            std::string::npos)
      << out.str();
  EXPECT_NE(
      out.str().find(
          "\"underlying\":{\"kind\":\"failed\",\"domain\":\"NSPOSIXErrorDomain\",\"code\":13,"),
      std::string::npos)
      << out.str();
}

TEST_F(CommandLineTest, believesTheRemovalsSuccessDespiteTheFirstError) {
  record.error = NS::fileError(1, "/a", NS::FileAccess::Writing);
  EXPECT_EQ(run({"remove", item}), 0);
  EXPECT_EQ(out.str(), "Removed " + item + "\n");
}

TEST_F(CommandLineTest, tellsWhetherAnItemExists) {
  EXPECT_EQ(run({"exists", "/a"}), 0);
  EXPECT_EQ(out.str(), "/a exists\n");
  record.success = false;
  EXPECT_EQ(run({"exists", "/a"}), 1);
  EXPECT_EQ(out.str(), "/a does not exist\n");
  EXPECT_EQ(run({"exists", "/a", "--json"}), 1);
  EXPECT_EQ(out.str(),
            "{\"command\":\"exists\",\"path\":\"/a\",\"success\":true,\"exists\":false}\n");
}

TEST_F(CommandLineTest, movesFromOnePathToAnother) {
  EXPECT_EQ(run({"move", "/a", "/b"}), 0);
  EXPECT_EQ(record.requests, Strings{"MoveItemAtPath /a /b"});
  EXPECT_EQ(out.str(), "Moved /a to /b\n");
  EXPECT_EQ(run({"move", "/a", "/b", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"move\",\"path\":\"/a\",\"destination\":\"/b\","
                       "\"success\":true}\n");
}

TEST_F(CommandLineTest, tellsAPersonHowMuchItMoved) {
  onTerminal = true;
  std::filesystem::create_directory(scratch.path("tree"));
  scratch.file("tree/a", "text");
  scratch.file("tree/b", "text");
  testClock = std::chrono::steady_clock::time_point();
  EXPECT_EQ(run({"move", "/a", scratch.path("tree")}), 0);
  EXPECT_EQ(out.str(), "Moved /a to " + scratch.path("tree") + "\n3 items, 12 KB moved, 0.0 s\n");
  EXPECT_EQ(run({"move", "/a", scratch.path("gone meanwhile")}), 0);
  EXPECT_EQ(out.str(), "Moved /a to " + scratch.path("gone meanwhile") + "\n");
  record.success = false;
  EXPECT_EQ(run({"move", "/a", scratch.path("tree")}), 1);
  EXPECT_EQ(out.str(), "");
}

TEST_F(CommandLineTest, countsTheMovedItemsForNoLongerThanASecond) {
  for (int number = 0; number < 1200; ++number)
    scratch.file(std::to_string(number), "");
  onTerminal = true;
  testClock = std::chrono::steady_clock::time_point();
  step = std::chrono::milliseconds(500);
  EXPECT_EQ(run({"move", "/a", scratch.path()}), 0);
  std::string line = out.str().substr(out.str().find('\n') + 1);
  EXPECT_TRUE(line.starts_with("at least 1024 items, ")) << line;
  EXPECT_TRUE(line.ends_with(" moved, 0.5 s\n")) << line;
}

TEST_F(CommandLineTest, movesAtLeastTheItemsThatItCanCount) {
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::filesystem::create_directories(scratch.path("tree/closed"));
  std::filesystem::permissions(scratch.path("tree/closed"), std::filesystem::perms::none);
  onTerminal = true;
  testClock = std::chrono::steady_clock::time_point();
  auto told = [&] {
    run({"move", "/a", scratch.path("tree")});
    return out.str() + fmt::format("requests: {}\n", record.requests.size());
  };
  std::string moved = "Moved /a to " + scratch.path("tree") + "\nat least 2 items, 8 KB moved, ";
  EXPECT_EQ(kwtest::inChildWithoutRights(told), moved + "0.0 s\nrequests: 2\n");
  step = std::chrono::seconds(1);
  EXPECT_EQ(kwtest::inChildWithoutRights(told), moved + "1.0 s\nrequests: 1\n")
      << "no time is left for the agent to measure";
  std::filesystem::permissions(scratch.path("tree/closed"), std::filesystem::perms::owner_all);
}

TEST_F(CommandLineTest, putsSizesIntoWords) {
  record.size = 1'234'567'890;
  EXPECT_EQ(run({"size", "/a", "/b"}), 0);
  EXPECT_EQ(out.str(), "1.23 GB\t/a\n1.23 GB\t/b\n");
  EXPECT_EQ(record.requests, (Strings{"SizeOfItemAtPath /a", "SizeOfItemAtPath /b"}));
  EXPECT_EQ(record.buses.size(), 1u) << "one connection serves all paths";
  EXPECT_EQ(run({"size", "--bytes", "/a"}), 0);
  EXPECT_EQ(out.str(), "1234567890\t/a\n");
  EXPECT_EQ(run({"size", "/a", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"/a\",\"success\":true,"
                       "\"bytes\":1234567890,\"text\":\"1.23 GB\"}\n");
}

TEST_F(CommandLineTest, endsTheAgent) {
  EXPECT_EQ(run({"terminate"}), 0);
  EXPECT_EQ(record.requests, Strings{"PleaseTerminate"});
  EXPECT_EQ(out.str(), "The agent has ended.\n");
  EXPECT_EQ(run({"terminate", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"terminate\",\"success\":true}\n");
}

TEST_F(CommandLineTest, takesRelativePathsFromItsOwnFolder) {
  record.size = 1;
  std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());
  EXPECT_EQ(run({"size", "inner/file", "/absolute"}), 0);
  std::filesystem::current_path(before);
  EXPECT_EQ(record.requests, (Strings{"SizeOfItemAtPath " + scratch.path("inner/file"),
                                      "SizeOfItemAtPath /absolute"}));
}

TEST_F(CommandLineTest, givesTheWorstStatusOfSeveralPaths) {
  record.success = false;
  EXPECT_EQ(run({"remove", "/a", "/b"}), 1);
  EXPECT_EQ(record.requests.size(), 2u);
}

TEST_F(CommandLineTest, takesPathsFromStandardInput) {
  input = std::string("/a b\0/c\nd\0", 10);
  EXPECT_EQ(run({"remove", "-0"}), 0);
  EXPECT_EQ(out.str(), "/a b: there was nothing there\n/c\nd: there was nothing there\n");
  EXPECT_EQ(record.requests, (Strings{"RemoveItemAtPath /a b", "RemoveItemAtPath /c\nd"}));
  input.clear();
  EXPECT_EQ(run({"remove", "-0"}), 0);
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(CommandLineTest, leavesAloneAPathThatMayBeCutOff) {
  input = std::string("/a\0/home/some", 13);
  EXPECT_EQ(run({"remove", "-0"}), 2);
  EXPECT_EQ(record.requests, Strings{"RemoveItemAtPath /a"});
  EXPECT_NE(err.str().find("not ended by a NUL"), std::string::npos) << err.str();
}

TEST_F(CommandLineTest, passesOverAnEmptyPathWithAComplaint) {
  input = std::string("/a\0\0/b\0", 7);
  EXPECT_EQ(run({"remove", "-0"}), 2);
  EXPECT_EQ(record.requests, (Strings{"RemoveItemAtPath /a", "RemoveItemAtPath /b"}));
  EXPECT_EQ(err.str(), "keepwell: a path must not be empty\n");
}

TEST_F(CommandLineTest, wantsPathsFromOnePlace) {
  input = std::string("/a\0", 3);
  EXPECT_EQ(run({"remove", "-0", "/b"}), 2);
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(CommandLineTest, tellsThousandsOfAnswersInTheOrderOfThePaths) {
  std::string expected;
  input.clear();
  for (int number = 0; number < 3000; ++number) {
    std::string path = fmt::format("/{}", number);
    input.append(path).push_back('\0');
    expected.append(path).append(": there was nothing there\n");
  }
  EXPECT_EQ(run({"remove", "-0"}), 0);
  EXPECT_EQ(out.str(), expected);
  EXPECT_EQ(record.requests.size(), 3000u);
}

TEST_F(CommandLineTest, gives3WhenTheAgentCannotBeReachedAndAsksNoMore) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "some.Name", "nobody there");
  EXPECT_EQ(run({"size", "/a", "/b"}), 3);
  EXPECT_EQ(record.requests, Strings{"SizeOfItemAtPath /a"});
  EXPECT_EQ(err.str(), "keepwell: /a: the agent cannot be reached: nobody there\n"
                       "keepwell: /b: not tried, since there was no answer before\n");
  EXPECT_EQ(run({"size", "/a", "--json"}), 3);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"/a\",\"success\":false,"
                       "\"error\":{\"kind\":\"unreachable\",\"name\":\"some.Name\","
                       "\"description\":\"nobody there\"}}\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(CommandLineTest, tellsAnInterruptionFromAnAgentThatWasNeverThere) {
  record.failure = ClientError(ClientError::Kind::Interrupted, "some.Name", "it went away");
  EXPECT_EQ(run({"remove", "/a", "/b"}), 3);
  EXPECT_EQ(record.requests, Strings{"RemoveItemAtPath /a"});
  EXPECT_EQ(err.str(), "keepwell: /a: the agent ended before it answered, and it is not known how "
                       "far it came: it went away\n"
                       "keepwell: /b: not tried, since there was no answer before\n");
  EXPECT_EQ(run({"remove", "/a", "--json"}), 3);
  EXPECT_NE(out.str().find("\"kind\":\"interrupted\""), std::string::npos) << out.str();
}

TEST_F(CommandLineTest, gives1WhenTheAgentRefuses) {
  record.failure = ClientError(ClientError::Kind::Refused, "NotSupported", "not here");
  EXPECT_EQ(run({"remove", "/a", "/b"}), 1);
  EXPECT_EQ(record.requests.size(), 2u);
  EXPECT_EQ(err.str(), "keepwell: /a: the agent refused: not here\n"
                       "keepwell: /b: the agent refused: not here\n");
  EXPECT_EQ(run({"terminate"}), 1);
}

TEST_F(CommandLineTest, gives2ForTextThatCannotBeSent) {
  record.failure = ClientError(ClientError::Kind::BadArgument, "EINVAL", "invalid UTF-8");
  EXPECT_EQ(run({"remove", "/\xff"}), 2);
  EXPECT_EQ(err.str(), "keepwell: /\xff: invalid UTF-8\n");
}

TEST_F(CommandLineTest, gives2ForInvalidArguments) {
  for (const Strings &arguments :
       {Strings{}, Strings{"dance"}, Strings{"echo"}, Strings{"move", "/a"},
        Strings{"move", "/a", "/b", "/c"}, Strings{"remove"}, Strings{"remove", ""},
        Strings{"exists"}, Strings{"truncate"}, Strings{"inspect"},
        Strings{"remove", "--sideways", "/a"}, Strings{"--bus"}}) {
    EXPECT_EQ(run(arguments), 2);
    EXPECT_TRUE(record.requests.empty());
    EXPECT_EQ(out.str(), "");
    EXPECT_NE(err.str(), "");
  }
}

TEST_F(CommandLineTest, tellsUsageErrorsAsJSONToo) {
  EXPECT_EQ(run({"dance", "--json"}), 2);
  EXPECT_EQ(err.str(), "");
  EXPECT_TRUE(out.str().starts_with("{\"success\":false,\"error\":{\"kind\":\"usage\","))
      << out.str();
}

TEST_F(CommandLineTest, wantsWholePathsInAFolderThatIsGone) {
  std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::create_directory(scratch.path("gone"));
  std::filesystem::current_path(scratch.path("gone"));
  std::filesystem::remove(scratch.path("gone"));
  for (const Strings &words : {Strings{"size", "a"},
                               {"move", "a", "/b"},
                               {"inspect", "a"},
                               {"find", "x", "--under", "a"},
                               {"remove", "--keep", "a/b", "/x"}}) {
    EXPECT_EQ(run(words), 2);
    EXPECT_NE(err.str().find("the current folder cannot be found any more"), std::string::npos);
    EXPECT_TRUE(record.requests.empty());
  }
  EXPECT_EQ(run({"--json", "size", "a"}), 2);
  EXPECT_TRUE(out.str().starts_with("{\"success\":false,\"error\":{\"kind\":\"usage\","))
      << out.str();
  EXPECT_EQ(err.str(), "");
  std::filesystem::current_path(before);
}

TEST_F(CommandLineTest, choosesTheBus) {
  run({"echo", "x"});
  run({"--bus", "session", "echo", "x"});
  run({"echo", "x", "--bus=unix:path=/run/bus"});
  EXPECT_EQ(record.buses, (Strings{"system", "session", "unix:path=/run/bus"}));
}

TEST_F(CommandLineTest, tellsItsVersionAndHelp) {
  EXPECT_EQ(run({"--version"}), 0);
  EXPECT_EQ(out.str(), "keepwell 2.11\n");
  EXPECT_EQ(run({"--help"}), 0);
  for (const char *word : {"echo", "exists", "size", "remove", "shred", "truncate", "move", "trash",
                           "terminate", "--json", "--bus"})
    EXPECT_NE(out.str().find(word), std::string::npos) << word;
  EXPECT_EQ(run({"size", "--help"}), 0);
  EXPECT_NE(out.str().find("--bytes"), std::string::npos);
  EXPECT_TRUE(record.buses.empty());
}

TEST_F(CommandLineTest, saysWhatToDoFirstToAPersonWithoutAnIdea) {
  EXPECT_EQ(run({}), 2);
  EXPECT_EQ(out.str(), "") << "a program made a mistake";
  onTerminal = true;
  EXPECT_EQ(run({}), 0);
  std::istringstream lines(out.str());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    EXPECT_LE(line.size(), 80u) << line;
  EXPECT_EQ(count, 5);
  EXPECT_NE(out.str().find("keepwell --help"), std::string::npos);
}

TEST_F(CommandLineTest, suggestsTheCommandNearAMistypedOne) {
  struct Guess {
    Strings words;
    const char *meant;
  };
  for (const Guess &guess :
       {Guess{{"remvoe", "/a"}, "\"remvoe\"; did you mean \"remove\"?"},
        Guess{{"--bus", "sizes", "siez", "/a"}, "\"siez\"; did you mean \"size\"?"},
        Guess{{"launchd", "disabel", "/a"}, "\"disabel\"; did you mean \"disable\"?"},
        Guess{{"maintenance", "flush"}, "\"flush\"; there are: erase-asl, "},
        Guess{{"rmove", "/a"}, "\"rmove\"; did you mean \"remove\"?"},
        Guess{{"rm", "/a"}, "\"rm\"; did you mean \"remove\"?"},
        Guess{{"delete", "/a"}, "\"delete\"; did you mean \"remove\"?"},
        Guess{{"du", "/a"}, "\"du\"; did you mean \"size\"?"},
        Guess{{"ls", "/a"}, "\"ls\"; did you mean \"inspect\"?"},
        Guess{{"x"}, "\"x\"; there are: size, exists, truncate, "}}) {
    EXPECT_EQ(run(guess.words), 2);
    EXPECT_TRUE(err.str().starts_with(std::string("keepwell: there is no command ") + guess.meant))
        << err.str();
    EXPECT_TRUE(record.requests.empty());
  }
  EXPECT_EQ(run({"remvoe", "/a", "--json"}), 2);
  EXPECT_EQ(out.str(), "{\"success\":false,\"error\":{\"kind\":\"usage\",\"description\":"
                       "\"there is no command \\\"remvoe\\\"; did you mean \\\"remove\\\"?\"}}\n");
}

// The longest line but for examples, which are printed as typed.
std::size_t widthOf(const std::string &help) {
  std::istringstream lines(help);
  std::size_t width = 0;
  for (std::string line; std::getline(lines, line);)
    if (!line.starts_with("  keepwell "))
      width = std::max(width, line.size());
  return width;
}

TEST_F(CommandLineTest, hasAnExampleInTheHelpOfEachCommand) {
  EXPECT_EQ(run({"--help"}), 0);
  std::size_t widest = widthOf(out.str());
  EXPECT_EQ(run({"--describe"}), 0);
  std::string description = out.str();
  EXPECT_EQ(description.find("\"examples\":[]"), std::string::npos);
  EXPECT_NE(description.find("\"names\":[\"--timeout\"]"), std::string::npos);
  EXPECT_NE(description.find("\"arguments\":[{\"name\":\"paths\","), std::string::npos);
  EXPECT_NE(description.find("{\"names\":[\"-n\",\"--dry-run\"],"), std::string::npos);
  EXPECT_EQ(description.find("\"names\":[\"--describe\"]"), std::string::npos) << "hidden";
  int commands = 0;
  for (std::size_t at = 0; (at = description.find("\"words\":[\"", at)) != std::string::npos;
       ++at) {
    std::size_t start = at + 9;
    std::string list = description.substr(start, description.find(']', start) - start);
    Strings words;
    for (std::size_t quote = 0; (quote = list.find('"', quote)) != std::string::npos;) {
      std::size_t end = list.find('"', quote + 1);
      words.push_back(list.substr(quote + 1, end - quote - 1));
      quote = end + 1;
    }
    words.emplace_back("--help");
    EXPECT_EQ(run(words), 0);
    EXPECT_NE(out.str().find("Examples:\n  keepwell "), std::string::npos) << list;
    std::string examples = out.str().substr(out.str().find("Examples:\n"));
    EXPECT_EQ(examples.find("\n       "), std::string::npos) << "an indent of more than six";
    EXPECT_NE(out.str().find("Exit status: 0 done"), std::string::npos) << list;
    EXPECT_NE(out.str().find("  --json  "), std::string::npos) << list;
    EXPECT_NE(out.str().find("  --timeout SECONDS  "), std::string::npos) << list;
    widest = std::max(widest, widthOf(out.str()));
    ++commands;
  }
  EXPECT_EQ(commands, 40);
  EXPECT_EQ(widest, 80u) << "as an ordinary terminal";
}

TEST_F(CommandLineTest, isQuietWhenAsked) {
  EXPECT_EQ(run({"remove", "/a", "--quiet"}), 0);
  EXPECT_EQ(run({"size", "-q", item}), 0);
  EXPECT_EQ(run({"-q", "--json", "remove", "/a"}), 0);
  EXPECT_EQ(out.str(), "");
  record.success = false;
  EXPECT_EQ(run({"remove", "-q", item}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + item + " could not be removed\n");
  EXPECT_EQ(run({"remove", "-q", item, "--json"}), 1);
  EXPECT_EQ(out.str(), "{\"command\":\"remove\",\"path\":\"" + item +
                           "\",\"success\":false,\"error\":"
                           "{\"kind\":\"failed\",\"description\":\"the agent gave no reason\"}}\n");
}

TEST_F(CommandLineTest, limitsTheTimeForTheConnectionToo) {
  EXPECT_EQ(run({"--timeout", "0.5", "remove", "/a"}), 0);
  EXPECT_EQ(record.connections.back().connectTimeLimit, std::chrono::milliseconds(500));
  EXPECT_EQ(run({"remove", "/a"}), 0);
  EXPECT_EQ(record.connections.back().connectTimeLimit, std::nullopt);
  EXPECT_TRUE(record.connections.back().endRequestsOnLeaving);
  EXPECT_TRUE(record.connections.back().keepConnecting()) << "there was no ^C";
}

TEST_F(CommandLineTest, namesAnUnknownLetterAndTheWordThatHasIt) {
  EXPECT_EQ(run({"exists", "-Z", "/a"}), 2);
  EXPECT_TRUE(err.str().starts_with("keepwell: there is no option -Z\n"))
      << "a letter resembles no other: " << err.str();
  EXPECT_EQ(run({"exists", "-qZ", "/a"}), 2);
  EXPECT_TRUE(err.str().starts_with("keepwell: there is no option -Z in -qZ")) << err.str();
  EXPECT_EQ(run({"size", "--s", "/a"}), 2);
  EXPECT_TRUE(err.str().starts_with("keepwell: there is no option --s; did you mean --si?"))
      << err.str();
}

TEST_F(CommandLineTest, takesTimesFromAMillisecondUp) {
  for (const char *time : {"0.001", "1e9"})
    EXPECT_NE(run({"--timeout", time, "exists", "/a"}), 2) << time; // it may pass
  EXPECT_EQ(record.connections.front().connectTimeLimit, std::chrono::milliseconds(1));
  for (const char *time : {"0.0009", "1.1e9"})
    EXPECT_EQ(run({"--timeout", time, "exists", "/a"}), 2) << time;
}

TEST_F(CommandLineTest, saysThatNothingWasDoneWhenTheRequestWasNotSent) {
  record.failure = ClientError(ClientError::Kind::DeadlinePassed, "", "the time has passed",
                               ClientError::Effect::None);
  EXPECT_EQ(run({"--timeout", "0.5", "remove", "/a"}), 3);
  EXPECT_EQ(err.str(), "keepwell: /a: nothing was done: the time has passed\n");
}

TEST_F(CommandLineTest, gives3WhenTheAnswerTakesTooLong) {
  record.failure = ClientError(ClientError::Kind::DeadlinePassed, "", "the time has passed",
                               ClientError::Effect::Unknown);
  EXPECT_EQ(run({"--timeout", "0.5", "remove", "/a"}), 3);
  EXPECT_EQ(err.str(), "keepwell: /a: no answer in the time allowed; the agent may yet do it\n");
  for (const char *time : {"0", "-1", "soon", "nan", "inf", "1e99", "", "1s"})
    EXPECT_EQ(run({"--timeout", time, "remove", "/a"}), 2) << time;
}

TEST_F(CommandLineTest, failsWhenItsAnswerCannotBeWritten) {
  out.setstate(std::ios::badbit);
  EXPECT_EQ(run({"echo", "x"}), 1);
  EXPECT_EQ(err.str(), "keepwell: the answer could not be written\n");
}

} // namespace
