// The record of a request, and its time.
#include "Service/RequestJournal.h"

#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"
#include "Support/RecordedRequests.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using kwtest::RecordedRequests;
using NS::XPCOutcome;
using NS::XPCReply;
using NS::XPCValues;

bool saysYes(const XPCValues &replies) {
  return std::get<bool>(replies.at(0));
}

class RequestJournalTest : public testing::Test {
protected:
  XPCReply begin(XPCValues arguments = {}) {
    return NS::recordingReply(method, arguments, {1000, 77}, XPCReply([this](XPCOutcome outcome) {
                                EXPECT_TRUE(!isFirst || journal.records().empty())
                                    << "the client comes first";
                                outcomes.push_back(std::move(outcome));
                              }));
  }

  NS::XPCMethod method{.selector = "remove:", .member = "Remove", .succeeded = saysYes};
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> clockOverride{clock};
  RecordedRequests journal;
  std::vector<XPCOutcome> outcomes;
  bool isFirst = true; // no entry is in the journal before
};

TEST_F(RequestJournalTest, keepsTheSenderTheSubjectAndTheDuration) {
  XPCReply reply = begin({std::string("/a"), std::vector<std::string>{"b", "c"}, true});
  clock.advance(std::chrono::milliseconds(1500));
  reply.send({true});
  ASSERT_EQ(journal.records().size(), 1u);
  NS::RequestRecord record = journal.records().front();
  EXPECT_EQ(record.requester.user, 1000u);
  EXPECT_EQ(record.requester.process, 77);
  EXPECT_EQ(record.member, "Remove");
  EXPECT_THAT(record.items, testing::ElementsAre("/a", "b", "c"));
  EXPECT_EQ(record.outcome, "done");
  EXPECT_EQ(record.reason, "");
  EXPECT_EQ(record.took.count(), 1500000);
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_TRUE(std::get<bool>(outcomes[0].values.at(0)));
}

TEST_F(RequestJournalTest, tellsARefusalAndItsError) {
  begin().send({false, NS::Error("domain", 7)});
  EXPECT_EQ(journal.records().at(0).outcome, "refused");
  EXPECT_EQ(journal.records().at(0).reason, "domain 7");
}

TEST_F(RequestJournalTest, tellsAFailureAndItsReason) {
  begin().fail("no memory");
  EXPECT_EQ(journal.records().at(0).outcome, "failed");
  EXPECT_EQ(journal.records().at(0).reason, "no memory");
  EXPECT_EQ(outcomes.at(0).reason, "no memory");
}

TEST_F(RequestJournalTest, recordsARequestThatIsNeverAnswered) {
  { XPCReply reply = begin(); }
  EXPECT_EQ(journal.records().at(0).outcome, "failed");
  EXPECT_FALSE(outcomes.at(0).replied);
}

TEST_F(RequestJournalTest, recordsTheFirstOfSeveralReplies) {
  XPCReply reply = begin();
  reply.send({true});
  reply.send({false});
  EXPECT_EQ(journal.records().size(), 1u);
  EXPECT_EQ(outcomes.size(), 1u);
}

TEST_F(RequestJournalTest, answersThoughTheReplyCannotBeUnderstood) {
  kwtest::LogRecorder log;
  begin().send({});
  EXPECT_EQ(outcomes.size(), 1u);
  EXPECT_THAT(log.lines(), testing::ElementsAre("A request of Remove was not recorded"));
  EXPECT_TRUE(journal.records().empty());
}

// The outcomes by member: the order of the records at an end is not defined.
std::map<std::string, std::string> outcomesOf(const RecordedRequests &journal) {
  std::map<std::string, std::string> outcomes;
  for (const NS::RequestRecord &record : journal.records())
    EXPECT_TRUE(outcomes.emplace(record.member, record.outcome).second) << record.member;
  return outcomes;
}

TEST_F(RequestJournalTest, recordsAtTheEndTheRequestThatEndsTheProcessAndThoseThatItCutsOff) {
  isFirst = false;
  std::optional<XPCReply> other;
  std::thread([&] { other = begin({std::string("/a")}); }).join();
  method.member = "Ending";
  XPCReply reply = begin();
  NS::recordRequestsAtEnd();
  EXPECT_THAT(outcomesOf(journal), testing::ElementsAre(testing::Pair("Ending", "done"),
                                                        testing::Pair("Remove", "cut off")));
  other->send({true});
  reply.send({true});
  EXPECT_EQ(journal.records().size(), 2u);
  EXPECT_EQ(outcomes.size(), 2u);
}

TEST_F(RequestJournalTest, recordsNothingAtTheEndThatIsRecorded) {
  isFirst = false;
  begin().send({true});
  { XPCReply reply = begin(); }
  NS::recordRequestsAtEnd();
  EXPECT_EQ(journal.records().size(), 2u);
}

// A journal in which something happens while an entry is written.
class JournalThatActs : public NS::RequestJournal {
public:
  explicit JournalThatActs(std::function<void()> act) : act_(std::move(act)) {}
  void write(const NS::RequestRecord &) override { act_(); }

private:
  const std::function<void()> act_;
  NS::ScopedOverride<NS::RequestJournal> override_{*this};
};

TEST_F(RequestJournalTest, beginsNothingAtTheEnd) {
  isFirst = false;
  int refused = 0;
  XPCReply reply = begin();
  {
    JournalThatActs acting([&] {
      try {
        begin();
      } catch (const std::runtime_error &) {
        ++refused;
      }
    });
    NS::recordRequestsAtEnd();
  }
  EXPECT_EQ(refused, 1);
  begin().send({true}); // there was no end
  EXPECT_EQ(journal.records().size(), 1u);
}

TEST_F(RequestJournalTest, waitsAtTheEndForRecordsBeingWritten) {
  std::promise<void> isWriting, mayGoOn;
  std::atomic<int> entries = 0;
  std::atomic<bool> isWritten = false;
  JournalThatActs slow([&] {
    if (entries++ > 0)
      return mayGoOn.set_value(); // the end writes its first
    isWriting.set_value();
    mayGoOn.get_future().wait();
    isWritten = true;
  });
  XPCReply cutOff = begin();
  XPCReply reply = begin();
  std::thread writer([&] { reply.send({true}); });
  isWriting.get_future().wait();
  NS::recordRequestsAtEnd();
  EXPECT_TRUE(isWritten);
  writer.join();
}

TEST_F(RequestJournalTest, endsThoughTheJournalIsStuck) {
  std::promise<void> mayGoOn, isOver;
  JournalThatActs stuck([&] {
    mayGoOn.get_future().wait();
    isOver.set_value();
  });
  XPCReply reply = begin();
  NS::recordRequestsAtEnd();
  mayGoOn.set_value();
  isOver.get_future().wait(); // before the journal goes
}

TEST_F(RequestJournalTest, isBoundedForAnyRequest) {
  std::vector<std::string> many(100000, std::string(10000, 'x'));
  begin({std::string(1 << 20, 'x'), many}).fail(std::string(1 << 20, 'x'));
  NS::RequestRecord record = journal.records().at(0);
  EXPECT_EQ(record.items.size(), 8u);
  for (const std::string &item : record.items)
    EXPECT_LE(item.size(), NS::RequestRecord::longestText + 40);
  EXPECT_LE(record.reason.size(), NS::RequestRecord::longestText + 40);
}

} // namespace
