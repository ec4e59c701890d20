// The connection of a session, and the order of its output where both streams are
// one terminal.
#include "CommandLine/Session.h"

#include "Support/FakeAgent.h"
#include "Support/Terminal.h"

#include "CommandLine/Measure.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

namespace {

using kwtest::Terminal;

TEST(OpenLine, endsBeforeAnythingElseIsPrinted) {
  struct Row {
    std::function<void(kw::Session &)> print;
    const char *printed;
  };
  for (const Row &row :
       {Row{[](auto &session) { session.say("done"); }, "done\n"},
        Row{[](auto &session) { session.say("1 KB", "/a"); }, "1 KB\t/a\n"},
        Row{[](auto &session) { session.sayLines("a\nb"); }, "a\nb\n"},
        Row{[](auto &session) { session.complain("no"); }, "keepwell: no\n"},
        Row{[](auto &session) { session.note("so"); }, "so\n"},
        Row{[](auto &session) { session.tellStopping(); }, "Stopping; ^C again leaves at once.\n"},
        Row{[](auto &session) { session.confirm("Go?", false); }, "Go? [y/N] "}}) {
    Terminal terminal;
    terminal.session->show("one\ntw");
    terminal.session->show("o");
    row.print(*terminal.session);
    EXPECT_EQ(terminal.screen.str(), std::string("one\ntwo\n") + row.printed);
  }
}

TEST(OpenLine, endsOnce) {
  Terminal terminal;
  terminal.session->show("one");
  terminal.session->show("");
  terminal.session->say("two");
  terminal.session->say("three");
  terminal.session->show("four\n");
  terminal.session->say("five");
  EXPECT_EQ(terminal.screen.str(), "one\ntwo\nthree\nfour\nfive\n");
}

TEST(OpenLine, endsWithTheSession) {
  Terminal terminal;
  terminal.session->show("one");
  terminal.session.reset();
  EXPECT_EQ(terminal.screen.str(), "one\n");
}

TEST(OpenLine, isNotReplacedByProgress) {
  Terminal terminal;
  terminal.session->show("one");
  terminal.session->showProgress("1 of 2");
  EXPECT_EQ(terminal.screen.str(), "one");
  terminal.session->show(" line\n");
  terminal.session->showProgress("2 of 2");
  EXPECT_EQ(terminal.screen.str(), "one line\n\r\x1b[K2 of 2");
}

TEST(OpenLine, isNoneOutsideOfATerminal) {
  Terminal terminal;
  terminal.surroundings.outIsTerminal = false;
  terminal.session->show("one");
  terminal.session->say("two");
  EXPECT_EQ(terminal.screen.str(), "two\n");
}

TEST(ProgressLine, isReplacedByTheNextOutput) {
  for (const auto &[print, printed] :
       {std::pair<std::function<void(kw::Session &)>, const char *>{
            [](auto &session) { session.say("done"); }, "done\n"},
        {[](auto &session) { session.say("1 KB", "/a"); }, "1 KB\t/a\n"},
        {[](auto &session) { session.show("piece"); }, "piece"},
        {[](auto &session) { session.complain("no"); }, "keepwell: no\n"},
        {[](auto &session) { session.note("so"); }, "so\n"},
        {[](auto &session) { session.confirm("Go?", false); }, "Go? [y/N] "},
        {[](auto &session) { session.endProgress(); }, ""}}) {
    Terminal terminal;
    terminal.session->showProgress("1 of 2");
    print(*terminal.session);
    EXPECT_EQ(terminal.screen.str(), std::string("\r\x1b[K1 of 2\r\x1b[K") + printed);
  }
}

TEST(ProgressLine, goesWithTheSession) {
  Terminal terminal;
  terminal.session->showProgress("1 of 2");
  terminal.session.reset();
  EXPECT_EQ(terminal.screen.str(), "\r\x1b[K1 of 2\r\x1b[K");
}

// Keeps its text back until it is flushed, as the standard output does.
class HeldBack final : public std::stringbuf {
public:
  explicit HeldBack(std::ostream &screen) : screen_(screen) {}

protected:
  int sync() override {
    screen_ << str();
    str("");
    return 0;
  }

private:
  std::ostream &screen_;
};

TEST(Output, comesBeforeErrorsQuestionsAndProgressThatFollow) {
  for (const auto &[print, printed] :
       {std::pair<std::function<void(kw::Session &)>, const char *>{
            [](auto &session) { session.complain("no"); }, "keepwell: no"},
        {[](auto &session) { session.note("so"); }, "so"},
        {[](auto &session) { session.confirm("Go?", false); }, "Go? [y/N] "},
        {[](auto &session) { session.showProgress("1 of 2"); }, "1 of 2"}}) {
    Terminal terminal;
    HeldBack buffer(terminal.screen);
    std::ostream out(&buffer);
    terminal.surroundings.out = &out;
    terminal.session->say("first");
    print(*terminal.session);
    std::string screen = terminal.screen.str();
    EXPECT_TRUE(screen.starts_with("first\n")) << screen;
    EXPECT_NE(screen.find(printed), screen.npos) << screen;
    terminal.session.reset();
  }
}

TEST(Output, comesBeforeAWait) {
  Terminal terminal;
  HeldBack buffer(terminal.screen);
  std::ostream out(&buffer);
  terminal.surroundings.out = &out;
  terminal.session->say("first");
  terminal.session->waitUntil([&] {
    EXPECT_EQ(terminal.screen.str(), "first\n");
    return true;
  });
  terminal.session.reset();
}

// One kind of output, and the text that a session prints there.
struct Elsewhere {
  const char *name;
  std::function<void(Terminal &)> arrange;
  const char *said;
  const char *complained;
  const char *json;
};

TEST(Output, isMadeDisplayableForATerminalAlone) {
  for (const Elsewhere &row :
       {Elsewhere{"a terminal", [](Terminal &) {}, "a\\x1b\n", "keepwell: a\\x1b\na\\x1b\n", ""},
        Elsewhere{"colours", [](Terminal &t) { t.surroundings.wantsColours = true; }, "a\\x1b\n",
                  "\x1b[1;31mkeepwell:\x1b[0m a\\x1b\na\\x1b\n", ""},
        Elsewhere{"a pipe for answers", [](Terminal &t) { t.surroundings.outIsTerminal = false; },
                  "a\x1b\n", "keepwell: a\\x1b\na\\x1b\n", ""},
        Elsewhere{"a pipe for errors",
                  [](Terminal &t) {
                    t.surroundings.errIsTerminal = false;
                    t.surroundings.wantsColours = true;
                  },
                  "a\\x1b\n", "keepwell: a\x1b\na\x1b\n", ""},
        Elsewhere{"silence", [](Terminal &t) { t.options.quiet = true; }, "",
                  "keepwell: a\\x1b\na\\x1b\n", ""},
        Elsewhere{"JSON", [](Terminal &t) { t.options.json = true; }, "", "", "{}\n"}}) {
    Terminal terminal;
    row.arrange(terminal);
    auto printed = [&](auto print) {
      terminal.screen.str("");
      print(*terminal.session);
      return terminal.screen.str();
    };
    EXPECT_EQ(printed([](auto &session) { session.say("a\x1b"); }), row.said) << row.name;
    EXPECT_EQ(printed([](auto &session) {
                session.complain("a\x1b");
                session.note("a\x1b");
              }),
              row.complained)
        << row.name;
    EXPECT_EQ(printed([](auto &session) { session.sayJSON(kw::JSONObject()); }), row.json);
  }
}

TEST(Output, hasFailuresForProgramsEvenInSilence) {
  Terminal terminal;
  terminal.options.json = terminal.options.quiet = true;
  terminal.session->sayJSON(kw::JSONObject());
  EXPECT_EQ(terminal.screen.str(), "");
  terminal.session->sayFailure(kw::JSONObject());
  EXPECT_EQ(terminal.screen.str(), "{}\n");
}

TEST(ProgressLine, isForAPersonWhoSeesTheErrors) {
  for (const auto &arrange :
       {std::function<void(Terminal &)>([](Terminal &t) { t.surroundings.errIsTerminal = false; }),
        {[](Terminal &t) { t.surroundings.canErase = false; }},
        {[](Terminal &t) { t.options.quiet = true; }},
        {[](Terminal &t) { t.options.json = true; }}}) {
    Terminal terminal;
    arrange(terminal);
    terminal.session->showProgress("1 of 2");
    EXPECT_EQ(terminal.screen.str(), "");
    EXPECT_FALSE(terminal.session->requestOptions().progress);
  }
}

TEST(ProgressLine, changesTenTimesASecondAtMost) {
  using namespace std::chrono_literals;
  Terminal terminal;
  std::chrono::steady_clock::time_point now{1h};
  terminal.surroundings.now = [&] { return now; };
  terminal.session->showProgress("1");
  now += 99ms;
  terminal.session->showProgress("2");
  now += 1ms;
  terminal.session->showProgress("3");
  EXPECT_EQ(terminal.screen.str(), "\r\x1b[K1\r\x1b[K3");
}

TEST(NoteOfStopping, isForAPersonAlone) {
  for (const auto &[toTerminal, quiet] : {std::pair{true, true}, {false, false}, {false, true}}) {
    Terminal terminal;
    terminal.surroundings.errIsTerminal = toTerminal;
    terminal.options.quiet = quiet;
    terminal.session->tellStopping();
    EXPECT_EQ(terminal.screen.str(), "");
  }
}

TEST(Question, takesAnyYesAndNothingElse) {
  for (const auto &[answer, isYes] : {std::pair{"y", true},
                                      {"Y", true},
                                      {"yes", true},
                                      {"Yes", true},
                                      {"YES", true},
                                      {"", false},
                                      {"n", false},
                                      {"yess", false},
                                      {"yES", false}}) {
    Terminal terminal;
    terminal.surroundings.ask = [answer = answer](const std::string &) { return answer; };
    if (isYes)
      EXPECT_NO_THROW(terminal.session->confirm("Go?", false)) << answer;
    else
      EXPECT_THROW(terminal.session->confirm("Go?", false), kw::NotConfirmed) << answer;
  }
}

TEST(Question, isNotAskedWithoutNeedOrPerson) {
  Terminal terminal;
  terminal.session->confirm("Go?", true);
  EXPECT_EQ(terminal.screen.str(), "");
  terminal.surroundings.ask = [](const std::string &) { return std::nullopt; };
  EXPECT_NO_THROW(terminal.session->confirm("Go?", false)) << "the person has gone";
  EXPECT_THROW(terminal.session->confirmTyped("Type x", "x"), kw::NotConfirmed);
  terminal.surroundings.ask = nullptr;
  EXPECT_NO_THROW(terminal.session->confirm("Go?", false));
  EXPECT_THROW(terminal.session->confirmTyped("Type x", "x"), kw::NotConfirmed);
}

TEST(Question, hasItsLinesAboveAndNoControlCharacters) {
  Terminal terminal;
  terminal.session->confirm("Go\x1b?", false, {"one\x1b", "two"});
  EXPECT_EQ(terminal.screen.str(), "one\\x1b\ntwo\nGo\\x1b? [y/N] ");
  terminal.surroundings.ask = [](const std::string &question) {
    EXPECT_EQ(question, "Type a\\x1b");
    return "a\\x1b";
  };
  EXPECT_NO_THROW(terminal.session->confirmTyped("Type a\x1b", "a\x1b"));
  EXPECT_THROW(terminal.session->confirmTyped("Type a\x1b", "b"), kw::NotConfirmed);
}

TEST(ProgressOfPaths, beginsWithTheTwentieth) {
  for (const auto &[done, all, printed] :
       {std::tuple<std::size_t, std::optional<std::size_t>, const char *>{19, 60, ""},
        {20, 60, "\r\x1b[K20 of 60"},
        {20, std::nullopt, "\r\x1b[K20 done"}}) {
    Terminal terminal;
    kw::showProgress(*terminal.session, done, all);
    EXPECT_EQ(terminal.screen.str(), printed);
  }
}

TEST(ProgressOfPaths, precedesThatOfTheItemUnderWay) {
  Terminal terminal;
  kw::showProgress(*terminal.session, 20, 60);
  terminal.surroundings.now = [] { return std::chrono::steady_clock::time_point::max(); };
  terminal.session->showAdvance({1, 4096, "/a"});
  EXPECT_EQ(terminal.screen.str(), "\r\x1b[K20 of 60\r\x1b[K20 of 60: 1 item, 4 KB  /a");
}

TEST(StoppedEarly, isToldWithItsOwnStatus) {
  Terminal terminal;
  EXPECT_EQ(kw::tellStoppedEarly(*terminal.session, kw::JSONObject()), kw::ExitStopped);
  EXPECT_EQ(terminal.screen.str(), "keepwell: stopped\n");
}

// The agent never answers.
TEST(MeasuringByAgent, hasTheTimeOfTheCommandOrItsOwn) {
  using namespace std::chrono_literals;
  for (bool isOwn : {true, false}) {
    kwtest::FakeAgent agent;
    agent.hold();
    Terminal terminal;
    terminal.surroundings.connect = [&](const std::string &, const kw::ClientOptions &options) {
      return agent.client(options);
    };
    if (!isOwn)
      terminal.options.timeout = 0.01;
    kw::Session session(terminal.surroundings, terminal.options);
    auto measure = isOwn ? kw::measuringByAgent(session, 10ms) : kw::measuringByAgent(session);
    EXPECT_EQ(measure("/folder"), std::nullopt);
    EXPECT_EQ(agent.sent().size(), 1u);
    agent.release();
  }
}

TEST(StoppedEarly, isAFailureForPrograms) {
  Terminal terminal;
  terminal.options.json = true;
  kw::tellStoppedEarly(*terminal.session, kw::JSONObject().add("command", "find"));
  EXPECT_EQ(terminal.screen.str(), "{\"command\":\"find\",\"success\":false,\"error\":{\"kind\":"
                                   "\"cancelled\",\"description\":\"stopped\"}}\n");
}

TEST(Connection, isTriedOnlyOnce) {
  using kw::ClientError;
  Terminal terminal;
  int connections = 0;
  terminal.surroundings.connect = [&](const std::string &,
                                      const kw::ClientOptions &) -> std::unique_ptr<kw::Client> {
    ++connections;
    throw ClientError(ClientError::Kind::DeadlinePassed, "", "the bus is silent");
  };
  for (int attempt = 0; attempt < 2; ++attempt)
    try {
      static_cast<void>(terminal.session->agent());
      FAIL() << "no error";
    } catch (const ClientError &error) {
      EXPECT_EQ(error.kind(), ClientError::Kind::DeadlinePassed);
      EXPECT_STREQ(error.what(), "the bus is silent");
    }
  EXPECT_EQ(connections, 1);
}

} // namespace
