// Stopping a command, its report on each path then, and programs that send
// paths one at a time.
#include "CommandLine/CommandLine.h"
#include "CommandLine/PathReader.h"
#include "CommandLine/PathRequests.h"

#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"
#include "Support/FlushedAnswers.h"
#include "Support/LockedItem.h"
#include "Support/ScratchFolder.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <streambuf>
#include <thread>

namespace {

using kwtest::FakeAgent;
using Strings = std::vector<std::string>;

constexpr int interrupt = 2;

class Stopping : public testing::Test {
protected:
  // Runs the command and stops it once the agent has got so many requests.
  int runAndStop(const Strings &words, std::size_t sent) {
    surroundings.alarm = alarm;
    surroundings.connect = [this](const std::string &, const kw::ClientOptions &) {
      return agent.client();
    };
    auto status = std::async(std::launch::async, [&] { return keepwell(words, surroundings); });
    agent.waitUntilSent(sent);
    // The command heeds the alarm a moment after it has sent a request.
    bool isHeeded = alarm->stop(interrupt);
    for (int tries = 0; !isHeeded && tries < 10'000; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      isHeeded = alarm->stop(interrupt);
    }
    EXPECT_TRUE(isHeeded);
    agent.waitUntilAskedToCancel(1);
    return status.get();
  }
  // The agent answers so many at once, then takes its time.
  void answerFirst(std::size_t count) {
    agent.setHandler([this, count](const kw::AgentMessage &message) {
      if (++answered_ == count)
        agent.holdFromNowOn();
      return FakeAgent::Answer(FakeAgent::usualReply(message));
    });
  }

  FakeAgent agent;
  kwtest::ScratchFolder scratch;
  std::shared_ptr<kw::Alarm> alarm = std::make_shared<kw::Alarm>();
  kw::Surroundings surroundings;
  kwtest::CommandRun keepwell;

private:
  std::size_t answered_ = 0;
};

TEST_F(Stopping, endsTheWaitForTheBus) {
  surroundings.alarm = alarm;
  surroundings.errIsTerminal = true;
  surroundings.connect = [this](const std::string &,
                                const kw::ClientOptions &options) -> std::unique_ptr<kw::Client> {
    EXPECT_TRUE(options.keepConnecting());
    EXPECT_TRUE(alarm->stop(interrupt));
    EXPECT_FALSE(options.keepConnecting());
    throw kw::ClientError(kw::ClientError::Kind::Cancelled, "", "given up");
  };
  EXPECT_EQ(keepwell({"remove", "--yes", "/a", "/b"}, surroundings), 130);
  EXPECT_EQ(keepwell.err.str(), "keepwell: /a: stopped before it began\n"
                                "keepwell: /b: stopped before it began\n"
                                "Stopped: 0 of 2 removed\n");
}

TEST_F(Stopping, tellsEachPathAndHowFarItCame) {
  agent.learnToCancel();
  answerFirst(2);
  Strings words = {"trash"};
  for (const char *name : {"a", "b", "c", "d", "e"})
    words.push_back(scratch.file(name, ""));
  EXPECT_EQ(runAndStop(words, 5), 130);
  std::string folder = scratch.path() + "/";
  EXPECT_EQ(keepwell.out.str(),
            "Moved " + folder + "a to the Trash\nMoved " + folder + "b to the Trash\n");
  EXPECT_EQ(keepwell.err.str(),
            "keepwell: " + folder + "c: stopped; work done by then stays done\n" +
                "keepwell: " + folder + "d: stopped before it began\n" + "keepwell: " + folder +
                "e: stopped before it began\n" + "Stopped: 2 of 5 moved to the Trash, 1 in part\n");
}

TEST_F(Stopping, isToldToProgramsToo) {
  agent.learnToCancel();
  answerFirst(1);
  std::string a = scratch.file("a", ""), b = scratch.file("b", ""), c = scratch.file("c", "");
  EXPECT_EQ(runAndStop({"--json", "remove", a, b, c}, 3), 130);
  EXPECT_EQ(keepwell.err.str(), "");
  std::string begin = "{\"command\":\"remove\",\"path\":\"";
  EXPECT_EQ(keepwell.out.str(),
            begin + a + "\",\"success\":true}\n" + begin + b +
                "\",\"success\":false,\"error\":{\"kind\":\"cancelled\",\"name\":\"\","
                "\"description\":\"the request was cancelled\"}}\n" +
                begin + c +
                "\",\"success\":false,\"error\":{\"kind\":\"cancelled\","
                "\"description\":\"stopped before it began\"}}\n");
}

TEST_F(Stopping, countsNoFailureAsStoppedInPart) {
  agent.learnToCancel();
  agent.setHandler([this](const kw::AgentMessage &) -> FakeAgent::Answer {
    agent.holdFromNowOn();
    return kw::ClientError(kw::ClientError::Kind::BadReply, "", "no number");
  });
  EXPECT_EQ(runAndStop({"size", "/a", "/b"}, 2), 130);
  EXPECT_EQ(keepwell.err.str(), "keepwell: /a: no number\n"
                                "keepwell: /b: stopped; work done by then stays done\n"
                                "Stopped: 0 of 2 measured, 1 in part\n");
}

TEST_F(Stopping, endsASingleRequest) {
  agent.learnToCancel();
  agent.hold();
  EXPECT_EQ(runAndStop({"move", "/a", "/b"}, 1), 130);
  EXPECT_EQ(keepwell.err.str(), "keepwell: stopped; work done by then stays done\n");
}

TEST_F(Stopping, sendsNothingThatHasNotBegun) {
  agent.learnToCancel();
  agent.hold();
  Strings words = {"size"};
  for (int number = 0; number < 2000; ++number)
    words.push_back("/" + std::to_string(number));
  EXPECT_EQ(runAndStop(words, 1), 130); // the first is asked alone
  EXPECT_EQ(agent.sent().size(), 1u);
  EXPECT_TRUE(keepwell.err.str().ends_with("keepwell: /1999: stopped before it began\n"
                                           "Stopped: 0 of 2000 measured, 1 in part\n"))
      << keepwell.err.str().substr(keepwell.err.str().size() - 200);
}

TEST_F(Stopping, leavesTheRestOfTheTrash) {
  agent.learnToCancel();
  agent.hold();
  std::filesystem::create_directories(scratch.path("Trash/files"));
  std::filesystem::create_directories(scratch.path("Trash/info"));
  for (std::string name : {"a", "b"}) {
    std::string year = name == "a" ? "2020" : "2021"; // the oldest goes first
    scratch.file("Trash/files/" + name, "");
    scratch.file("Trash/info/" + name + ".trashinfo", "[Trash Info]\nPath=/srv/" + name +
                                                          "\nDeletionDate=" + year +
                                                          "-01-01T00:00:00\n");
  }
  kwtest::LockedItem locked(scratch.path("Trash/files/a")); // only the agent can remove it
  KW_REQUIRE_LOCKED(locked);
  surroundings.trashFolders = [this] {
    return std::vector<kw::TrashFolder>{{scratch.path("Trash"), scratch.path()}};
  };
  EXPECT_EQ(runAndStop({"trash", "empty", "--yes"}, 1), 130);
  EXPECT_EQ(keepwell.err.str(), "keepwell: stopped; work done by then stays done\n");
  EXPECT_TRUE(std::filesystem::exists(scratch.path("Trash/files/b")));
}

// A pipe within the program, whose reader waits for data.
class Pipe : public std::streambuf {
public:
  void write(const std::string &text) {
    std::lock_guard lock(mutex_);
    text_ += text;
    changed_.notify_all();
  }
  void close() {
    std::lock_guard lock(mutex_);
    isClosed_ = true;
    changed_.notify_all();
  }
  // The written text that was not read yet.
  std::string unread() {
    std::lock_guard lock(mutex_);
    return text_;
  }

protected:
  int_type underflow() override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isClosed_ || !text_.empty(); });
    if (text_.empty())
      return traits_type::eof();
    letter_ = text_.front();
    text_.erase(0, 1);
    setg(&letter_, &letter_, &letter_ + 1);
    return traits_type::to_int_type(letter_);
  }

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
  bool isClosed_ = false;
  char letter_ = 0;
};

// The standard input of a command that takes its paths from there.
class OpenInput : public testing::Test {
protected:
  OpenInput() {
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.in = &in;
    auto shared = std::make_shared<SharedAlarm>();
    isReleased = shared->isReleased.get_future();
    surroundings.alarm = alarm = std::shared_ptr<kw::Alarm>(shared, &shared->alarm);
    session.emplace(surroundings, options);
  }
  ~OpenInput() override { awaitItsReader(); }
  // A reader that was left goes on for a moment.
  void awaitItsReader() {
    pipe.close();
    session.reset();
    surroundings.alarm.reset();
    alarm.reset();
    isReleased.wait();
  }
  // Tells when the last thread has released it.
  struct SharedAlarm {
    SharedAlarm() = default;
    ~SharedAlarm() { isReleased.set_value(); }
    SharedAlarm(const SharedAlarm &) = delete;
    SharedAlarm &operator=(const SharedAlarm &) = delete;

    kw::Alarm alarm;
    std::promise<void> isReleased;
  };

  Pipe pipe;
  std::istream in{&pipe};
  std::ostringstream out, err;
  std::shared_ptr<kw::Alarm> alarm;
  std::future<void> isReleased;
  kw::Surroundings surroundings;
  kw::GlobalOptions options;
  std::optional<kw::Session> session;
  const kw::PathArguments fromPipe{.given = {}, .fromStandardInput = true};
};

TEST_F(OpenInput, givesThePathsThatWereReadBeforeAStop) {
  kw::PathSource paths(*session, fromPipe);
  pipe.write(std::string("/a\0/b\0", 6));
  EXPECT_EQ(paths.next(), "/a");
  while (!paths.isReady())
    std::this_thread::yield();
  paths.stopReading();
  EXPECT_EQ(paths.next(), "/b");
  ASSERT_TRUE(paths.isReady()) << "it waits for no more";
  EXPECT_EQ(paths.next(), std::nullopt);
}

TEST_F(OpenInput, doesNotHoldUpACommandThatIsStopped) {
  kw::PathSource paths(*session, fromPipe);
  pipe.write(std::string("/a\0", 3));
  EXPECT_EQ(kw::tellForEachPath(*session, "size", paths,
                                [&](const std::string &) {
                                  kw::Alarm::Heeding heeding(*alarm);
                                  alarm->stop(interrupt);
                                  return kw::ExitDone;
                                }),
            kw::ExitStopped);
}

TEST_F(OpenInput, isNotAwaitedWhileAPathHasMoreToGive) {
  kw::PathSource paths(*session, fromPipe, [](const std::string &path) {
    return Strings{path + "/1", path + "/2"};
  });
  pipe.write(std::string("/a\0", 3));
  EXPECT_EQ(paths.next(), "/a/1");
  EXPECT_TRUE(paths.isReady());
  EXPECT_EQ(paths.next(), "/a/2");
  pipe.close(); // which the reader waits for
}

TEST_F(OpenInput, isReadToTheEndOfAPathAtMostOnceItWasLeft) {
  {
    kw::PathReader reader(in, alarm);
    pipe.write(std::string("/a\0", 3));
    EXPECT_EQ(reader.next()->path, "/a");
    reader.leave();
  }
  pipe.write(std::string("/b\0/c\0", 6));
  awaitItsReader();
  EXPECT_EQ(pipe.unread(), std::string("/c\0", 3));
}

TEST_F(OpenInput, isReadNoFurtherThanTheReaderHasRoomFor) {
  constexpr std::size_t room = kw::PathReader::longestQueue;
  std::string rest(room - 1, '\0');
  {
    kw::PathReader reader(in, alarm);
    pipe.write(std::string(room + 1, '\0') + rest); // paths that are empty
    pipe.close();
    while (pipe.unread().size() > rest.size())
      std::this_thread::yield();
  }
  EXPECT_EQ(pipe.unread(), rest);
}

TEST(NumberOfPaths, isKnownOfThoseGivenAsArguments) {
  kw::Surroundings surroundings;
  kw::GlobalOptions options;
  kw::Session session(surroundings, options);
  const kw::PathArguments given{{"/a", "/b"}};
  EXPECT_EQ(kw::PathSource(session, given).count(), 2u);
  auto expand = [](const std::string &path) { return Strings{path}; };
  EXPECT_EQ(kw::PathSource(session, given, expand).count(), std::nullopt);
}

TEST(TellingForEachPath, endsWhenTheCommandIsStopped) {
  auto alarm = std::make_shared<kw::Alarm>();
  std::ostringstream out, err;
  kw::Surroundings surroundings;
  surroundings.out = &out;
  surroundings.err = &err;
  surroundings.alarm = alarm;
  kw::GlobalOptions options;
  kw::Session session(surroundings, options);
  kw::PathSource paths(session, {{"/a", "/b", "/c"}});
  Strings told;
  int status = kw::tellForEachPath(session, "size", paths, [&](const std::string &path) {
    told.push_back(path);
    kw::Alarm::Heeding heeding(*alarm); // as it waits for the agent
    alarm->stop(interrupt);
    return kw::ExitDone;
  });
  EXPECT_EQ(status, kw::ExitStopped);
  EXPECT_EQ(told, Strings{"/a"});
  EXPECT_EQ(err.str(), "keepwell: /b: stopped before it began\n"
                       "keepwell: /c: stopped before it began\n");
}

TEST(Alarm, isNotHeededWhereNothingIsUnderWayNorTwice) {
  kw::Alarm alarm;
  EXPECT_FALSE(alarm.stop(interrupt));
  EXPECT_EQ(alarm.stopSignal(), 0);
  kw::Alarm::Heeding heeding(alarm);
  EXPECT_TRUE(alarm.stop(interrupt));
  EXPECT_EQ(alarm.stopSignal(), interrupt);
  EXPECT_FALSE(alarm.stop(interrupt));
}

TEST(Coprocess, getsEachAnswerBeforeItSendsTheNextPath) {
  for (const Strings &words :
       {Strings{"keepwell", "exists", "-0"}, {"keepwell", "size", "--local", "-0"}}) {
    FakeAgent agent;
    Pipe paths;
    kwtest::FlushedAnswers answers;
    std::istream in(&paths);
    std::ostream out(&answers);
    std::ostringstream err;
    kw::Surroundings surroundings;
    surroundings.in = &in;
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.connect = [&](const std::string &, const kw::ClientOptions &) {
      return agent.client();
    };
    std::vector<const char *> arguments;
    for (const std::string &word : words)
      arguments.push_back(word.c_str());
    auto status = std::async(std::launch::async, [&] {
      return kw::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), surroundings);
    });
    for (const char *path : {"/usr/bin", "/etc", "/bin"}) {
      paths.write(path + std::string(1, '\0'));
      answers.waitFor(path);
    }
    paths.close();
    EXPECT_EQ(status.get(), 0) << err.str();
  }
}

// A stream whose device fails after one path.
class FailingInput : public std::streambuf {
protected:
  int_type underflow() override {
    if (std::exchange(hasFailed_, true))
      throw std::ios_base::failure("cannot be read");
    setg(text_, text_, text_ + sizeof text_ - 1);
    return traits_type::to_int_type(text_[0]);
  }

private:
  char text_[6] = "/a\0/b";
  bool hasFailed_ = false;
};

TEST(PathReader, tellsOfInputThatCannotBeReadToItsEnd) {
  FailingInput buffer;
  std::istream input(&buffer);
  kw::PathReader reader(input, std::make_shared<kw::Alarm>());
  EXPECT_EQ(reader.next()->path, "/a");
  auto item = reader.next();
  ASSERT_TRUE(item);
  EXPECT_STREQ(item->complaint, "standard input could not be read to its end");
  EXPECT_FALSE(reader.next());
}

} // namespace
