// The progress of a long request: the rate, the line, and when it is shown.
#include "CommandLine/AgentAdvance.h"

#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kw::AdvanceRate;
using kw::RequestProgress;

constexpr AdvanceRate::Moment start{};

TEST(AdvanceRate, isThatSinceTheFirstReport) {
  AdvanceRate rate;
  EXPECT_EQ(rate.of({1, 5000}, start), std::nullopt);
  EXPECT_EQ(rate.of({2, 9000}, start + 999ms), std::nullopt) << "too early to tell";
  EXPECT_EQ(rate.of({3, 9000}, start + 2s), 2000u);
  EXPECT_EQ(rate.of({3, 13000}, start + 4s), 2000u) << "one large item may take long";
}

TEST(AdvanceRate, isKnownAfterASecondAlsoWhereNothingCame) {
  AdvanceRate rate;
  EXPECT_EQ(rate.of({1, 5000}, start), std::nullopt);
  EXPECT_EQ(rate.of({2, 5000}, start + 1s), 0u) << "empty files";
  EXPECT_EQ(rate.of({3, 9000}, start + 2s), 2000u);
}

TEST(AdvanceRate, beginsAgainWithTheNextWork) {
  AdvanceRate rate;
  EXPECT_EQ(rate.of({100, 1'000'000}, start), std::nullopt);
  EXPECT_EQ(rate.of({200, 5'000'000}, start + 2s), 2'000'000u);
  EXPECT_EQ(rate.of({1, 1000}, start + 3s), std::nullopt) << "fewer items: another work";
  EXPECT_EQ(rate.of({2, 3000}, start + 5s), 1000u);
  EXPECT_EQ(rate.of({3, 500}, start + 6s), std::nullopt) << "never a negative one";
}

TEST(AdvanceLine, hasItemsBytesRateAndTheEndOfALongPath) {
  EXPECT_EQ(kw::advanceInWords("", {1, 4096, ""}, std::nullopt), "1 item, 4 KB");
  EXPECT_EQ(kw::advanceInWords("3 of 60", {1204, 3'500'000, "/srv/old"}, 1'200'000),
            "3 of 60: 1204 items, 3.5 MB, 1.2 MB/s  /srv/old");
  std::string deep = "/srv/" + std::string(200, 'x') + "/last";
  std::string line = kw::advanceInWords("", {2, 8192, deep}, std::nullopt);
  EXPECT_EQ(line.size(), 79u) << line;
  EXPECT_TRUE(line.starts_with("2 items, 8 KB  ...x")) << line;
  EXPECT_TRUE(line.ends_with("x/last")) << line;
  EXPECT_EQ(kw::advanceInWords("", {1, 4096, "/a\x1b[2J"}, std::nullopt),
            "1 item, 4 KB  /a\\x1b[2J");
}

TEST(AdvanceLine, hasAPathWhereTenCharactersAreLeftForIt) {
  std::string figures = "1 item, 4 KB";
  std::string before(67 - figures.size(), 'x');
  EXPECT_EQ(kw::advanceInWords(before, {1, 4096, "/srv/long/path"}, std::nullopt),
            before + ": " + figures + "  .../path");
  EXPECT_EQ(kw::advanceInWords(before + "x", {1, 4096, "/srv/long/path"}, std::nullopt),
            before + "x: " + figures);
}

TEST(AdvanceLine, cutsNoCharacterInTwo) {
  for (std::size_t room = 3; room < 12; ++room) {
    std::string text = kw::endOf("\u00e4\u20ac\U0001F600\u00e4\u20ac", room);
    EXPECT_LE(text.size(), room);
    EXPECT_TRUE(text.starts_with("..."));
    EXPECT_TRUE(std::string("\u00e4\u20ac\U0001F600\u00e4\u20ac").ends_with(text.substr(3)));
    EXPECT_NE(static_cast<unsigned char>(text[3]) & 0xc0, 0x80) << room;
  }
  EXPECT_EQ(kw::endOf("short", 5), "short");
}

// A terminal that keeps the text written to it.
class Shown : public std::stringbuf {
public:
  bool holds(const std::string &text) {
    std::lock_guard lock(mutex_);
    return seen_.find(text) != std::string::npos;
  }

protected:
  int sync() override {
    std::lock_guard lock(mutex_);
    seen_ = str();
    return 0;
  }

private:
  std::mutex mutex_;
  std::string seen_;
};

class Advance : public testing::Test {
protected:
  // Has the agent report while it works on the one request of the command, and
  // returns the output to the terminal.
  std::string shownDuring(const std::vector<std::string> &words) {
    std::ostream err(&shown_);
    std::ostringstream out;
    kw::Surroundings surroundings;
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.errIsTerminal = true;
    surroundings.canErase = canErase;
    surroundings.now = [this] { return start + std::chrono::seconds(++seconds_); };
    surroundings.connect = [this](const std::string &, const kw::ClientOptions &) {
      return agent_.client();
    };
    surroundings.hasTool = surroundings.hasFile = [](const std::string &) { return true; };
    agent_.hold();
    std::vector<const char *> arguments{"keepwell"};
    for (const std::string &word : words)
      arguments.push_back(word.c_str());
    auto status = std::async(std::launch::async, [&] {
      return kw::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), surroundings);
    });
    agent_.waitUntilSent(1);
    for (std::uint64_t report = 1; report <= 2; ++report) {
      agent_.sendAdvance({report, report * 1'000'000, "/srv/item" + std::to_string(report)});
      for (int tries = 0;
           canErase && tries < 1000 && !shown_.holds("/srv/item" + std::to_string(report)); ++tries)
        std::this_thread::sleep_for(10ms);
    }
    agent_.release();
    EXPECT_EQ(status.get(), 0);
    err.flush();
    return shown_.str();
  }

  bool canErase = true;

private:
  kwtest::FakeAgent agent_;
  Shown shown_;
  int seconds_ = 0;
};

struct Shape {
  const char *name;
  std::vector<std::string> words;
};

class AdvanceOf : public Advance, public testing::WithParamInterface<Shape> {};

TEST_P(AdvanceOf, isShownWithItsRateAndErasedInTheEnd) {
  std::string shown = shownDuring(GetParam().words);
  EXPECT_NE(shown.find("\r\x1b[K1 item, 1 MB  /srv/item1"), std::string::npos) << shown;
  EXPECT_NE(shown.find(" KB/s  /srv/item2\r\x1b[K"), std::string::npos) << shown;
}

INSTANTIATE_TEST_SUITE_P(Commands, AdvanceOf,
                         testing::Values(Shape{"move", {"move", "/srv/a", "/mnt/a"}},
                                         Shape{"remove", {"remove", "/srv/a"}},
                                         Shape{"shred", {"shred", "/srv/a"}},
                                         Shape{"trash", {"trash", "/srv/a"}},
                                         Shape{"size", {"size", "/srv"}}),
                         [](const auto &shape) { return std::string(shape.param.name); });

TEST_F(Advance, isNotShownOnADumbTerminal) {
  canErase = false;
  EXPECT_EQ(shownDuring({"move", "/srv/a", "/mnt/a"}), "");
}

} // namespace
