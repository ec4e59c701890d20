// The output for people and programs about names, causes and missing items.
#include "Support/AnsweredCommand.h"
#include "Support/ForkedChild.h"

#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

using kw::ClientError;
using kwtest::Strings;
using Telling = kwtest::AnsweredCommand;

TEST_F(Telling, escapesCharactersThatActOnATerminalThere) {
  struct Name {
    const char *name, *shown;
  };
  for (const Name &row :
       {Name{"a\x1b[2J\nb", "a\\x1b[2J\\x0ab"},
        Name{"\xc2\x9b"
             "2J",
             "\\u009b2J"},
        Name{"\x9b"
             "2J",
             "\\x9b2J"},
        Name{"\u202egpj.exe", "\\u202egpj.exe"}, Name{"\u2066a\u2069", "\\u2066a\\u2069"},
        Name{"a\u200f\u061c", "a\\u200f\\u061c"}, Name{"a\u2028b", "a\\u2028b"},
        Name{"a\\x1b", "a\\\\x1b"}, Name{"Gr\u00fc\u00dfe \u2603", "Gr\u00fc\u00dfe \u2603"}}) {
    std::string path = scratch.file(row.name, "");
    onTerminal = true;
    EXPECT_EQ(run({"remove", path}), 0);
    EXPECT_EQ(out.str(), "Removed " + scratch.path(row.shown) + "\n");
    record.success = false;
    EXPECT_EQ(run({"remove", path}), 1);
    EXPECT_EQ(err.str(), "keepwell: " + scratch.path(row.shown) + " could not be removed\n");
    onTerminal = false;
    EXPECT_EQ(run({"remove", path}), 1);
    EXPECT_EQ(err.str(), "keepwell: " + path + " could not be removed\n");
    record.success = true;
    EXPECT_EQ(run({"remove", path}), 0);
    EXPECT_EQ(out.str(), "Removed " + path + "\n") << "into a pipe it goes as it is";
  }
}

TEST_F(Telling, saysThatThereWasNothing) {
  record.size = 0;
  EXPECT_EQ(run({"remove", "/no/such"}), 0);
  EXPECT_EQ(out.str(), "/no/such: there was nothing there\n");
  EXPECT_EQ(run({"remove", "/no/such", "--json"}), 0);
  EXPECT_EQ(out.str(),
            "{\"command\":\"remove\",\"path\":\"/no/such\",\"success\":true,\"missing\":true}\n");
  EXPECT_EQ(run({"size", "/no/such", item}), 1);
  EXPECT_EQ(err.str(), "keepwell: /no/such: there is nothing there\n");
  EXPECT_EQ(out.str(), "Zero KB\t" + item + "\n");
  EXPECT_EQ(run({"size", "/no/such", "--json"}), 1);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"/no/such\",\"success\":false,\"error\":"
                       "{\"kind\":\"failed\",\"description\":\"there is nothing there\"}}\n");
}

TEST_F(Telling, tellsEachPathWhenNoAnswerComes) {
  record.failure = ClientError(ClientError::Kind::DeadlinePassed, "", "the time has passed",
                               ClientError::Effect::Unknown);
  EXPECT_EQ(run({"exists", "/a", "/b", "/c"}), 3);
  EXPECT_EQ(err.str(), "keepwell: /a: no answer in the time allowed; the agent may yet do it\n"
                       "keepwell: /b: not tried, since there was no answer before\n"
                       "keepwell: /c: not tried, since there was no answer before\n");
  EXPECT_EQ(run({"exists", "/a", "/b", "--json"}), 3);
  EXPECT_TRUE(out.str().ends_with(
      "\"}}\n{\"command\":\"exists\",\"path\":\"/b\",\"success\":false,\"error\":{\"kind\":"
      "\"skipped\",\"description\":\"not tried, since there was no answer before\"}}\n"))
      << out.str();
}

TEST_F(Telling, printsTheDeepestCause) {
  record.success = false;
  NS::Error beneath(NS::POSIXErrorDomain, 1); // as a library sends it that has no words for it
  record.error = NS::Error(NS::CocoaErrorDomain, 513, {{"NSFilePath", "/a"}},
                           std::make_shared<const NS::Error>(beneath));
  EXPECT_EQ(run({"remove", "/a"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /a could not be removed: Operation not permitted\n");
  EXPECT_EQ(run({"trash", item}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + item +
                           " could not be moved to the Trash: /a: Operation not permitted\n");
}

TEST_F(Telling, printsTheAgentsOwnWordsForTheCause) {
  record.success = false;
  record.error =
      NS::Error(NS::POSIXErrorDomain, 1,
                NS::userInfoWith(NS::LocalizedDescriptionKey, std::string("the volume is sealed")));
  EXPECT_EQ(run({"remove", "/a"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /a could not be removed: the volume is sealed\n");
}

// As a volume of a network or of another program may answer.
TEST_F(Telling, takesTheFailureOfAVolumeForNoStop) {
  record.success = false;
  record.error = NS::fileError(ECANCELED, "/a", NS::FileAccess::Writing);
  EXPECT_EQ(run({"remove", "/a"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /a could not be removed: Operation canceled\n");
}

TEST_F(Telling, looksForTheCauseWhereTheAgentGivesNone) {
  record.success = false;
  EXPECT_EQ(run({"truncate", scratch.path()}), 1);
  EXPECT_EQ(err.str(), "keepwell: " + scratch.path() + " could not be truncated: Is a directory\n");
  EXPECT_EQ(run({"truncate", "/dev/null"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /dev/null could not be truncated: it is not a regular file\n");
  EXPECT_EQ(run({"shred", "/no/such"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /no/such could not be shredded: No such file or directory\n");
  EXPECT_EQ(run({"shred", "/no/such", "--json"}), 1);
  EXPECT_NE(out.str().find("\"description\":\"No such file or directory\""), std::string::npos);
}

TEST_F(Telling, namesTheGroupWhenTheBusDeniesAccess) {
  record.failure =
      ClientError(ClientError::Kind::Unreachable, "org.freedesktop.DBus.Error.AccessDenied", "no");
  EXPECT_EQ(run({"echo", "x"}), 3);
  EXPECT_TRUE(err.str().starts_with("keepwell: You are not in the group keepwell. Ask an "
                                    "administrator for `adduser "))
      << err.str();
  EXPECT_TRUE(err.str().ends_with(" keepwell`, then log in again.\n")) << err.str();
}

TEST_F(Telling, takesNoSizeFromAnAgentThatCouldNotMeasure) {
  record.size = 5;
  record.error = NS::fileError(24, item, NS::FileAccess::Reading);
  EXPECT_EQ(run({"size", item}), 1);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "keepwell: " + item + " could not be measured: Too many open files\n");
}

TEST_F(Telling, namesTheToolThatThisSystemLacks) {
  missing = "/bin/launchctl";
  EXPECT_EQ(run({"launchd", "enable", "/j.plist"}), 1);
  EXPECT_EQ(err.str(),
            "keepwell: launchd enable needs /bin/launchctl, which this system does not have\n");
  EXPECT_EQ(out.str(), "");
  EXPECT_TRUE(record.requests.empty());
  EXPECT_EQ(run({"launchd", "enable", "/j.plist", "--json"}), 1);
  EXPECT_EQ(out.str(),
            "{\"command\":\"launchd enable\",\"success\":false,\"error\":{\"kind\":"
            "\"unavailable\",\"description\":\"launchd enable needs /bin/launchctl, which "
            "this system does not have\"}}\n");
  EXPECT_EQ(run({"startup", "start", "x"}), 0) << "another tool";
  missing = "/etc/launchd.conf";
  EXPECT_EQ(run({"launchd-conf", "remove-library", "x"}), 1);
  EXPECT_EQ(err.str(), "keepwell: launchd-conf remove-library needs /etc/launchd.conf, which this "
                       "system does not have\n");
}

TEST_F(Telling, tellsHowMuchOneRemovalFreed) {
  onTerminal = true;
  ask = [](const std::string &) { return "y"; };
  scratch.file("an item", "text");
  EXPECT_EQ(run({"remove", item}), 0);
  EXPECT_NE(out.str().find("1 item, 4 KB freed, "), std::string::npos) << out.str();
}

TEST_F(Telling, namesTheToolThatEachCommandNeeds) {
  for (auto [words, needed] : std::initializer_list<std::pair<Strings, const char *>>{
           {{"launchd", "enable", "/j"}, "/bin/launchctl"},
           {{"launchd", "disable", "/j"}, "/bin/launchctl"},
           {{"launchd", "remove", "/j"}, "/bin/launchctl"},
           {{"startup", "start", "x"}, "/sbin/SystemStarter"},
           {{"startup", "stop", "x"}, "/sbin/SystemStarter"},
           {{"kext", "remove", "/k"}, "/sbin/kextunload"},
           {{"package", "forget", "x"}, "/usr/sbin/pkgutil"},
           {{"launchd-conf", "remove-library", "x"}, "/etc/launchd.conf"},
           {{"maintenance", "erase-asl"}, "/var/log/asl"},
           {{"maintenance", "erase-unified-log"}, "/usr/bin/log"},
           {{"maintenance", "periodic", "daily"}, "/usr/sbin/periodic"},
           {{"maintenance", "reindex-spotlight"}, "/usr/bin/mdutil"},
           {{"maintenance", "repair-permissions"}, "/usr/libexec/repair_packages"}}) {
    missing = needed;
    EXPECT_EQ(run(words), 1);
    EXPECT_EQ(err.str(), "keepwell: " + words[0] + " " + words[1] + " needs " + needed +
                             ", which this system does not have\n");
    missing = "";
    run(words);
    EXPECT_EQ(err.str().find(" needs "), std::string::npos) << err.str();
  }
}

TEST_F(Telling, putsCommandsWithoutTheirToolsIntoAGroupOfTheirOwn) {
  missing = "/usr/sbin/pkgutil";
  EXPECT_EQ(run({"--help"}), 0);
  std::size_t group = out.str().find("Not available on this system:\n"
                                     "  package forget              needs /usr/sbin/pkgutil\n");
  EXPECT_NE(group, std::string::npos) << out.str();
  EXPECT_EQ(out.str().find("package forget"), out.str().rfind("package forget"));
  missing = "";
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_EQ(out.str().find("Not available on this system"), std::string::npos);
}

TEST_F(Telling, asksWithSubstance) {
  std::vector<std::string> questions;
  std::string reply = "n";
  ask = [&](const std::string &question) -> std::optional<std::string> {
    questions.push_back(question);
    return reply;
  };
  std::string size = "4 KB"; // of an item with four letters
  scratch.file("an item", "text");
  EXPECT_EQ(run({"remove", item, "/no/such"}), 1);
  EXPECT_EQ(questions, Strings{"Remove " + item + ": 1 item, " + size + "? [y/N] "});
  EXPECT_EQ(err.str(), "keepwell: not confirmed; nothing was done\n");
  EXPECT_TRUE(record.requests.empty());
  EXPECT_EQ(run({"truncate", item}), 1);
  EXPECT_EQ(questions.back(), "Truncate " + item + ": 1 item, " + size + "? [y/N] ");
  input = item + std::string(1, '\0');
  EXPECT_EQ(run({"shred", "-0", "--keep", "nothing"}), 1);
  EXPECT_EQ(questions.back(), "Shred " + item + ": 1 item, " + size + "? [y/N] ");
  reply = "y";
  EXPECT_EQ(run({"shred", "-0"}), 0);
  EXPECT_EQ(record.requests, Strings{"SecurelyRemoveItemAtPath " + item});
  std::size_t asked = questions.size();
  EXPECT_EQ(run({"remove", "--yes", item}), 0);
  EXPECT_EQ(run({"remove", "/no/such"}), 0);
  EXPECT_EQ(run({"trash", item}), 0);
  EXPECT_EQ(questions.size(), asked) << "nothing to ask about";
  EXPECT_EQ(run({"remove", scratch.path(), "--keep", "an item"}), 0);
  EXPECT_EQ(questions.size(), asked + 1);
  EXPECT_EQ(questions.back(), "Remove " + scratch.path() + ", keeping 1: 0 items, Zero KB? [y/N] ");
}

TEST_F(Telling, tellsProgramsThatThePersonDeclined) {
  ask = [](const std::string &) { return "n"; };
  EXPECT_EQ(run({"--json", "remove", item}), 1);
  EXPECT_EQ(out.str(), "{\"success\":false,\"error\":{\"kind\":\"declined\","
                       "\"description\":\"not confirmed; nothing was done\"}}\n");
}

TEST_F(Telling, namesTheFirstFivePathsInItsQuestion) {
  std::string question;
  ask = [&](const std::string &text) {
    question = text.substr(text.rfind("Remove "));
    return "n";
  };
  Strings words = {"remove"};
  std::string named = "Remove ";
  for (const char *name : {"a", "b", "c", "d", "e"}) {
    words.push_back(scratch.file(name, ""));
    named += (words.size() > 2 ? ", " : "") + words.back();
  }
  run(words);
  EXPECT_EQ(question, named + ": 5 items, Zero KB? [y/N] ");
  words.push_back(scratch.file("f", ""));
  words.push_back(scratch.file("g", ""));
  run(words);
  EXPECT_EQ(question, named + " and 2 more: 7 items, Zero KB? [y/N] ");
}

TEST_F(Telling, tellsTheKeptItemsBeforeTheRemovedOnes) {
  std::filesystem::create_directory(scratch.path("tree"));
  std::string kept = scratch.file("tree/kept", "");
  std::string other = scratch.file("tree/other", "");
  EXPECT_EQ(run({"remove", scratch.path("tree"), "--keep", "kept"}), 0);
  EXPECT_EQ(out.str(), "Kept " + kept + "\nRemoved " + other + "\n");
  EXPECT_EQ(run({"--json", "remove", scratch.path("tree"), "--keep", "kept"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"remove\",\"path\":\"" + kept +
                           "\",\"success\":true,\"kept\":true}\n{\"command\":\"remove\","
                           "\"path\":\"" +
                           other + "\",\"success\":true}\n");
}

TEST_F(Telling, leavesAFolderThatItCannotReadWhenItHasToKeepItems) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root, to become another user";
  std::string tree = scratch.path("tree"), closed = tree + "/closed";
  std::filesystem::create_directories(closed);
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(closed, std::filesystem::perms(0));
  std::string reason = closed + " cannot be read and stays, since it may hold items to keep";
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              int status = run({"remove", tree, "--keep", "kept"});
              if (status != 1 || !record.requests.empty())
                return "status " + std::to_string(status);
              if (err.str() != "keepwell: " + reason + "\n")
                return err.str();
              run({"--json", "remove", tree, "--keep", "kept"});
              return out.str();
            }),
            "{\"command\":\"remove\",\"path\":\"" + closed +
                "\",\"success\":false,\"error\":{\"kind\":\"failed\",\"description\":\"" + reason +
                "\"}}\n");
}

TEST_F(Telling, refusesInADryRunPathsThatTheAgentWouldRefuse) {
  for (const char *path : {"/", "/usr/.", "/usr/.."}) {
    EXPECT_EQ(run({"remove", "-n", "--force-protected", path}), 1) << path;
    EXPECT_EQ(err.str(), std::string("keepwell: ") + path + " is never removed\n");
  }
  EXPECT_EQ(run({"remove", "-n", "--force-protected", "//"}), 1);
  EXPECT_EQ(err.str(), "keepwell: / is never removed\n");
  EXPECT_EQ(run({"remove", "-n", "--force-protected", "/proc"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /proc is a mount point and is never removed\n");
  EXPECT_EQ(run({"remove", "-n", "/\xff"}), 1);
  EXPECT_EQ(err.str(), "keepwell: /\xff is not valid UTF-8 and cannot be sent to the agent\n");
}

TEST_F(Telling, countsOnceAsTheDryRunDoes) {
  std::filesystem::create_directory(scratch.path("tree"));
  std::string file = scratch.file("tree/a", std::string(100'000, 'x'));
  std::filesystem::create_hard_link(file, scratch.path("tree/b"));
  EXPECT_EQ(run({"size", "--once", "--bytes", scratch.path("tree")}), 0);
  std::string bytes = out.str().substr(0, out.str().find('\t'));
  EXPECT_GE(std::stoul(bytes), 100'000u);
  EXPECT_LT(std::stoul(bytes), 150'000u);
  EXPECT_EQ(run({"--json", "remove", "-n", scratch.path("tree")}), 0);
  EXPECT_NE(out.str().find("\"allocated\":" + bytes + ",\"freed\":" + bytes), std::string::npos)
      << out.str();
  EXPECT_TRUE(out.str().ends_with("\n{\"command\":\"remove\",\"dryRun\":true,\"success\":true,"
                                  "\"total\":{\"items\":3,\"allocated\":" +
                                  bytes + ",\"freed\":" + bytes + "}}\n"))
      << out.str();
  EXPECT_EQ(run({"size", "--help"}), 0);
  EXPECT_NE(out.str().find("counts each folder twice"), std::string::npos);
}

} // namespace
