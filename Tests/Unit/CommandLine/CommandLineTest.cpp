// The program from its arguments to its output and exit status, with a client
// that answers as the test says.
#include "CommandLine/CommandLine.h"

#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace {

using kw::ClientError;
using kw::FlagReply;
using Strings = std::vector<std::string>;

// Notes every request; the operations that no command of these tests uses
// fail the test.
class FakeClient final : public kw::Client {
public:
  struct Record {
    Strings requests;
    FlagReply flag{true, std::nullopt};
    std::int64_t size = 0;
    std::optional<std::string> echo; // instead of what was sent
    std::optional<ClientError> failure;
    Strings buses;
  };
  explicit FakeClient(Record &record) : record_(record) {}

  void pleaseTerminate() override { note("terminate"); }
  kw::EchoReply echo(const std::string &text) override {
    note("echo " + text);
    return {record_.echo.value_or(text), std::nullopt};
  }
  FlagReply fileExistsAtPath(const std::string &path) override { return answer("exists " + path); }
  FlagReply moveItemAtPath(const std::string &source, const std::string &target) override {
    return answer("move " + source + " " + target);
  }
  FlagReply removeItemAtPath(const std::string &path) override { return answer("remove " + path); }
  FlagReply securelyRemoveItemAtPath(const std::string &path) override {
    return answer("shred " + path);
  }
  FlagReply moveToTrashItemAtPath(const std::string &path) override {
    return answer("trash " + path);
  }
  FlagReply truncateFileAtPath(const std::string &path) override {
    return answer("truncate " + path);
  }
  kw::SizeReply sizeOfItemAtPath(const std::string &path) override {
    note("size " + path);
    return {record_.size, std::nullopt};
  }
  FlagReply removePackageWithID(const std::string &) override { return unexpected(); }
  FlagReply removeKextAtPath(const std::string &) override { return unexpected(); }
  FlagReply slimBinaryWithPath(const std::string &, const Strings &) override {
    return unexpected();
  }
  FlagReply removeLaunchdAgentAtPath(const std::string &) override { return unexpected(); }
  FlagReply enableLaunchdAgentAtPath(const std::string &) override { return unexpected(); }
  FlagReply disableLaunchdAgentAtPath(const std::string &) override { return unexpected(); }
  FlagReply removeSMLoginItem(const std::string &) override { return unexpected(); }
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &) override {
    return unexpected();
  }
  FlagReply startStartupItem(const std::string &) override { return unexpected(); }
  FlagReply stopStartupItem(const std::string &) override { return unexpected(); }
  FlagReply removeLibraryFromLauchdConf(const std::string &) override { return unexpected(); }
  FlagReply removeASL() override { return unexpected(); }
  kw::RepairReply repairPermissions(const Progress &) override { return {}; }
  FlagReply runPeriodicScript(const std::string &) override { return unexpected(); }
  FlagReply startSpotlightReindex() override { return unexpected(); }
  FlagReply flushDNS() override { return unexpected(); }
  kw::DiagnosticLogsReply removeDiagnosticLogs() override { return {}; }

private:
  void note(const std::string &request) {
    record_.requests.push_back(request);
    if (record_.failure)
      throw *record_.failure;
  }
  FlagReply answer(const std::string &request) {
    note(request);
    return record_.flag;
  }
  FlagReply unexpected() {
    ADD_FAILURE() << "a request that no command makes";
    return {};
  }

  Record &record_;
};

class CommandLineTest : public testing::Test {
protected:
  int run(const Strings &arguments) {
    std::vector<const char *> pointers{"keepwell"};
    for (const std::string &argument : arguments)
      pointers.push_back(argument.c_str());
    out.str("");
    err.str("");
    record.requests.clear();
    kw::Surroundings surroundings;
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.connect = [this](const std::string &bus) {
      record.buses.push_back(bus);
      return std::make_unique<FakeClient>(record);
    };
    return kw::runCommandLine(static_cast<int>(pointers.size()), pointers.data(), surroundings);
  }

  FakeClient::Record record;
  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(CommandLineTest, repeatsWhatTheAgentSays) {
  EXPECT_EQ(run({"echo", "hello"}), 0);
  EXPECT_EQ(out.str(), "hello\n");
  EXPECT_EQ(record.requests, Strings{"echo hello"});
  EXPECT_EQ(run({"echo", "hello", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"echo\",\"success\":true,\"text\":\"hello\"}\n");
}

TEST_F(CommandLineTest, isNotContentWithAnotherEcho) {
  record.echo = "something else";
  EXPECT_EQ(run({"echo", "hello"}), 1);
}

struct Row {
  const char *command;
  const char *done;
  const char *failed;
};

TEST_F(CommandLineTest, tellsWhatHappenedToAnItem) {
  for (auto [command, done, failed] :
       {Row{"remove", "Removed /a b\n", "keepwell: /a b could not be removed\n"},
        Row{"shred", "Shredded /a b\n", "keepwell: /a b could not be shredded\n"},
        Row{"truncate", "Truncated /a b\n", "keepwell: /a b could not be truncated\n"},
        Row{"trash", "Moved /a b to the Trash\n",
            "keepwell: /a b could not be moved to the Trash\n"}}) {
    record.flag = {true, std::nullopt};
    EXPECT_EQ(run({command, "/a b"}), 0) << command;
    EXPECT_EQ(out.str(), done);
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(record.requests, Strings{std::string(command) + " /a b"});
    record.flag = {false, std::nullopt};
    EXPECT_EQ(run({command, "/a b"}), 1) << command;
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), failed);
  }
}

TEST_F(CommandLineTest, givesTheReasonOfTheAgent) {
  record.flag = {false, NS::fileError(13, "/a", NS::FileAccess::Writing)};
  EXPECT_EQ(run({"remove", "/a"}), 1);
  EXPECT_NE(err.str().find("/a could not be removed: "), std::string::npos) << err.str();
  EXPECT_EQ(run({"--json", "remove", "/a"}), 1);
  EXPECT_EQ(err.str(), "");
  EXPECT_NE(out.str().find("{\"command\":\"remove\",\"path\":\"/a\",\"success\":false,"
                           "\"error\":{\"domain\":\"NSCocoaErrorDomain\",\"code\":513,"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("\"underlying\":{\"domain\":\"NSPOSIXErrorDomain\",\"code\":13,"),
            std::string::npos)
      << out.str();
}

TEST_F(CommandLineTest, takesTheRemovalsWordForSuccessWhateverTheFirstError) {
  record.flag = {true, NS::fileError(1, "/a", NS::FileAccess::Writing)};
  EXPECT_EQ(run({"remove", "/a"}), 0);
  EXPECT_EQ(out.str(), "Removed /a\n");
}

TEST_F(CommandLineTest, tellsWhetherAnItemExists) {
  EXPECT_EQ(run({"exists", "/a"}), 0);
  EXPECT_EQ(out.str(), "/a exists\n");
  record.flag.success = false;
  EXPECT_EQ(run({"exists", "/a"}), 1);
  EXPECT_EQ(out.str(), "/a does not exist\n");
  EXPECT_EQ(run({"exists", "/a", "--json"}), 1);
  EXPECT_EQ(out.str(),
            "{\"command\":\"exists\",\"path\":\"/a\",\"success\":true,\"exists\":false}\n");
}

TEST_F(CommandLineTest, movesFromOnePathToAnother) {
  EXPECT_EQ(run({"move", "/a", "/b"}), 0);
  EXPECT_EQ(record.requests, Strings{"move /a /b"});
  EXPECT_EQ(out.str(), "Moved /a to /b\n");
  EXPECT_EQ(run({"move", "/a", "/b", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"move\",\"path\":\"/a\",\"destination\":\"/b\","
                       "\"success\":true}\n");
}

TEST_F(CommandLineTest, putsSizesIntoWords) {
  record.size = 1'234'567'890;
  EXPECT_EQ(run({"size", "/a", "/b"}), 0);
  EXPECT_EQ(out.str(), "1.23\u00a0GB\t/a\n1.23\u00a0GB\t/b\n");
  EXPECT_EQ(record.requests, (Strings{"size /a", "size /b"}));
  EXPECT_EQ(record.buses.size(), 1u) << "one connection serves all paths";
  EXPECT_EQ(run({"size", "--bytes", "/a"}), 0);
  EXPECT_EQ(out.str(), "1234567890\t/a\n");
  EXPECT_EQ(run({"size", "/a", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"/a\",\"success\":true,"
                       "\"bytes\":1234567890,\"text\":\"1.23\u00a0GB\"}\n");
}

TEST_F(CommandLineTest, endsTheAgent) {
  EXPECT_EQ(run({"terminate"}), 0);
  EXPECT_EQ(record.requests, Strings{"terminate"});
  EXPECT_EQ(out.str(), "The agent has ended.\n");
}

TEST_F(CommandLineTest, takesRelativePathsFromItsOwnFolder) {
  kwtest::ScratchFolder scratch;
  std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());
  EXPECT_EQ(run({"size", "inner/file", "/absolute"}), 0);
  std::filesystem::current_path(before);
  EXPECT_EQ(record.requests, (Strings{"size " + scratch.path("inner/file"), "size /absolute"}));
}

TEST_F(CommandLineTest, givesTheWorstStatusOfSeveralPaths) {
  record.flag.success = false;
  EXPECT_EQ(run({"remove", "/a", "/b"}), 1);
  EXPECT_EQ(record.requests.size(), 2u);
}

TEST_F(CommandLineTest, gives3WhenTheAgentCannotBeReachedAndAsksNoMore) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "some.Name", "nobody there");
  EXPECT_EQ(run({"size", "/a", "/b"}), 3);
  EXPECT_EQ(record.requests, Strings{"size /a"});
  EXPECT_EQ(err.str(), "keepwell: the agent cannot be reached: nobody there\n");
  EXPECT_EQ(run({"size", "/a", "--json"}), 3);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"/a\",\"success\":false,"
                       "\"error\":{\"kind\":\"unreachable\",\"name\":\"some.Name\","
                       "\"description\":\"nobody there\"}}\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(CommandLineTest, gives1WhenTheAgentRefuses) {
  record.failure = ClientError(ClientError::Kind::Refused, "NotSupported", "not here");
  EXPECT_EQ(run({"remove", "/a", "/b"}), 1);
  EXPECT_EQ(record.requests.size(), 2u);
  EXPECT_EQ(run({"terminate"}), 1);
}

TEST_F(CommandLineTest, gives2ForWhatCannotBeSent) {
  record.failure = ClientError(ClientError::Kind::BadArgument, "EINVAL", "no UTF-8");
  EXPECT_EQ(run({"remove", "/\xff"}), 2);
  EXPECT_EQ(err.str(), "keepwell: no UTF-8\n");
}

TEST_F(CommandLineTest, gives2ForWhatItDoesNotUnderstand) {
  for (const Strings &arguments :
       {Strings{}, Strings{"dance"}, Strings{"echo"}, Strings{"move", "/a"},
        Strings{"move", "/a", "/b", "/c"}, Strings{"remove"}, Strings{"remove", ""},
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

TEST_F(CommandLineTest, showsControlCharactersInsteadOfSendingThem) {
  EXPECT_EQ(run({"remove", "/a\x1b[2J\nb"}), 0);
  EXPECT_EQ(out.str(), "Removed /a\\x1b[2J\\x0ab\n");
}

TEST_F(CommandLineTest, failsWhenItsAnswerCannotBeWritten) {
  out.setstate(std::ios::badbit);
  EXPECT_EQ(run({"echo", "x"}), 1);
  EXPECT_EQ(err.str(), "keepwell: the answer could not be written\n");
}

TEST(JSON, escapesWhatMustBeEscaped) {
  EXPECT_EQ(kw::jsonString("a\"b\\c\n\t\r\x01\x7f"), "\"a\\\"b\\\\c\\n\\t\\r\\u0001\\u007f\"");
  EXPECT_EQ(kw::jsonString("Grüße \xE2\x98\x83 \xF0\x9F\x98\x80"),
            "\"Grüße \xE2\x98\x83 \xF0\x9F\x98\x80\"");
}

TEST(JSON, replacesWhatIsNoUTF8) {
  for (const char *bytes : {"\xff", "\xc0", "\xc1", "\x80", "\xf5"})
    EXPECT_EQ(kw::jsonString(bytes), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(kw::jsonString("\xE2\x98"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
  EXPECT_EQ(kw::jsonString("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

TEST(JSON, writesEveryKindOfValue) {
  kw::JSONObject object;
  object.add("s", "text")
      .add("b", true)
      .add("i", std::int64_t{-1})
      .add("u", ~std::uint64_t{0})
      .add("d", 0.5)
      .add("a", Strings{"x", "y"})
      .add("o", kw::JSONObject().add("n", false));
  EXPECT_EQ(object.text(), "{\"s\":\"text\",\"b\":true,\"i\":-1,\"u\":18446744073709551615,"
                           "\"d\":0.5,\"a\":[\"x\",\"y\"],\"o\":{\"n\":false}}");
}

} // namespace
