// One client: its permitted calls, their handlers, and exceptions of these.
#include "Service/Linux/ServiceConnection.h"
#include "Foundation/Base/Exception.h"
#include "Support/LogRecorder.h"
#include "Support/RecordedRequests.h"

#include <future>
#include <gmock/gmock.h>
#include <stdexcept>
#include <thread>

namespace {

using namespace NS;

class Object : public XPCObject {
public:
  int calls = 0;
};

struct Sent {
  std::string interface;
  std::string member;
  XPCValues values;
};

void ignore(XPCObject &, const XPCValues &, const XPCReply &) {}

class ServiceConnectionTest : public testing::Test {
protected:
  ServiceConnectionTest() {
    connection->setExportedInterface(interface);
    connection->setExportedObject(object);
  }

  // Delivers the member and waits for its outcome.
  XPCOutcome call(const std::string &member, XPCValues arguments = {}) {
    auto outcome = std::make_shared<std::promise<XPCOutcome>>();
    auto future = outcome->get_future();
    EXPECT_TRUE(connection->deliver(
        *connection->methodWithMember(member), std::move(arguments),
        XPCReply([outcome](XPCOutcome value) { outcome->set_value(std::move(value)); })));
    return future.get();
  }

  std::vector<Sent> sent;
  std::shared_ptr<Object> object = std::make_shared<Object>();
  std::shared_ptr<const XPCInterface> interface = std::make_shared<const XPCInterface>(XPCInterface{
      "org.example",
      {{.selector = "count:",
        .member = "Count",
        .invoker =
            [](XPCObject &target, const XPCValues &arguments, const XPCReply &reply) {
              ++dynamic_cast<Object &>(target).calls;
              reply.send(arguments);
            }},
       {.selector = "raise",
        .member = "Raise",
        .invoker = [](XPCObject &, const XPCValues &,
                      const XPCReply &) { throw Exception(RangeException, "out of range"); }},
       {.selector = "raiseOther",
        .member = "RaiseOther",
        .invoker = [](XPCObject &, const XPCValues &, const XPCReply &) { throw 7; }},
       {.selector = "replyThenRaise",
        .member = "ReplyThenRaise",
        .invoker =
            [](XPCObject &, const XPCValues &, const XPCReply &reply) {
              reply.send({true});
              throw std::runtime_error("afterwards");
            }},
       {.selector = "work",
        .member = "Work",
        .invoker =
            [](XPCObject &, const XPCValues &, const XPCReply &reply) {
              Progress::current().countItem(5);
              reply.send({Progress::current().isCancelled()});
            }},
       {.selector = "change",
        .member = "Change",
        .invoker = [](XPCObject &, const XPCValues &,
                      const XPCReply &reply) { reply.send({true}); },
        .succeeded = [](const XPCValues &replies) { return std::get<bool>(replies.at(0)); }},
       {.selector = "changeAndRaise",
        .member = "ChangeAndRaise",
        .invoker = [](XPCObject &, const XPCValues &,
                      const XPCReply &) { throw std::runtime_error("no more"); },
        .succeeded = [](const XPCValues &) { return true; }},
       {.selector = "forget", .member = "Forget", .invoker = ignore},
       {.selector = "oneWay", .member = "OneWay", .oneWay = true, .invoker = ignore}}});
  std::shared_ptr<ServiceConnection> connection = std::make_shared<ServiceConnection>(
      std::make_shared<WorkerPool>(WorkerLimits{4}, std::chrono::hours(1)), RequestQueueLimits{},
      [this](const std::string &name, const XPCMethod &method, XPCValues values) {
        sent.push_back({name, method.member, std::move(values)});
      });
};

TEST_F(ServiceConnectionTest, recordsEachChangeWithItsRequester) {
  kwtest::RecordedRequests journal;
  connection->resume();
  EXPECT_EQ(call("Count").replied, true);
  EXPECT_TRUE(journal.records().empty()) << "this one changes nothing";
  connection->suspend();
  auto answered = std::async(std::launch::async, [&] { return call("Change"); });
  connection->setRequester({1000, 7}); // as when the bus answers behind the first request
  connection->resume();
  EXPECT_TRUE(answered.get().replied);
  while (journal.records().empty()) // comes behind the answer
    std::this_thread::yield();
  RequestRecord record = journal.records().front();
  EXPECT_EQ(record.member, "Change");
  EXPECT_EQ(record.outcome, "done");
  EXPECT_EQ(record.requester.process, 7);
  EXPECT_EQ(record.requester.user, 1000u);
}

TEST_F(ServiceConnectionTest, recordsAHandlerThatRaises) {
  kwtest::RecordedRequests journal;
  connection->resume();
  EXPECT_FALSE(call("ChangeAndRaise").replied);
  while (journal.records().empty())
    std::this_thread::yield();
  EXPECT_EQ(journal.records().front().outcome, "failed");
  EXPECT_EQ(journal.records().front().reason, "no more");
}

TEST_F(ServiceConnectionTest, handlesARequestWithItsProgress) {
  auto request = std::make_shared<ServiceRequest>();
  request->progress.cancel();
  std::promise<XPCOutcome> outcome;
  EXPECT_TRUE(connection->deliver(
      *connection->methodWithMember("Work"), {},
      XPCReply([&](XPCOutcome value) { outcome.set_value(std::move(value)); }), request));
  connection->resume();
  EXPECT_TRUE(std::get<bool>(outcome.get_future().get().values.at(0)));
  EXPECT_EQ(request->progress.snapshot().bytes, 5u);
}

TEST_F(ServiceConnectionTest, doesNotHandleARequestThatWasDroppedBeforeItsTurn) {
  auto request = std::make_shared<ServiceRequest>();
  EXPECT_TRUE(connection->deliver(*connection->methodWithMember("Count"), {},
                                  XPCReply([](const XPCOutcome &) {}), request));
  EXPECT_TRUE(request->drop());
  connection->resume();
  call("Count"); // handled after it
  EXPECT_EQ(object->calls, 1);
  EXPECT_FALSE(request->begin());
}

TEST_F(ServiceConnectionTest, knowsTheProcessAndUserOfTheClient) {
  EXPECT_EQ(connection->processIdentifier(), -1);
  connection->setRequester({1000, 7});
  EXPECT_EQ(connection->processIdentifier(), 7);
  EXPECT_EQ(connection->effectiveUserIdentifier(), 1000U);
}

TEST_F(ServiceConnectionTest, handsARequestToTheExportedObject) {
  connection->resume();
  XPCOutcome outcome = call("Count", {std::string("text")});
  EXPECT_TRUE(outcome.replied);
  EXPECT_EQ(std::get<std::string>(outcome.values.at(0)), "text");
  EXPECT_EQ(object->calls, 1);
}

TEST_F(ServiceConnectionTest, knowsOnlyTheMembersOfItsInterface) {
  EXPECT_EQ(connection->methodWithMember("Nonsense"), nullptr);
  connection->setExportedInterface(nullptr);
  EXPECT_EQ(connection->methodWithMember("Count"), nullptr);
}

TEST_F(ServiceConnectionTest, makesAnExceptionOfTheHandlerAFailure) {
  connection->resume();
  EXPECT_EQ(call("Raise").reason, "out of range");
  EXPECT_EQ(call("RaiseOther").reason, "an exception of unknown type");
  EXPECT_TRUE(call("Count").replied); // and goes on
}

TEST_F(ServiceConnectionTest, keepsAReplyThatCameBeforeTheException) {
  connection->resume();
  EXPECT_TRUE(call("ReplyThenRaise").replied);
}

TEST_F(ServiceConnectionTest, failsARequestWithoutAnAnswer) {
  connection->resume();
  EXPECT_FALSE(call("Forget").replied);
}

TEST_F(ServiceConnectionTest, countsAOneWayRequestAsDoneWhenItsHandlerReturns) {
  connection->resume();
  EXPECT_TRUE(call("OneWay").replied);
}

TEST_F(ServiceConnectionTest, failsWithoutAnExportedObject) {
  connection->setExportedObject(nullptr);
  connection->resume();
  EXPECT_EQ(call("Count").reason, "nothing is exported");
}

TEST_F(ServiceConnectionTest, finishesRequestsThatReachedItAfterItIsGone) {
  auto outcome = std::make_shared<std::promise<XPCOutcome>>();
  connection->resume();
  ASSERT_TRUE(connection->deliver(
      *connection->methodWithMember("Count"), {true},
      XPCReply([outcome](XPCOutcome value) { outcome->set_value(std::move(value)); })));
  connection.reset();
  EXPECT_TRUE(outcome->get_future().get().replied);
}

TEST_F(ServiceConnectionTest, failsRequestsThatNeverReachedItsObjectWhenItIsGone) {
  XPCOutcome outcome{.replied = true};
  ASSERT_TRUE(connection->deliver(*connection->methodWithMember("Count"), {true},
                                  XPCReply([&](XPCOutcome value) { outcome = std::move(value); })));
  connection.reset(); // still suspended
  EXPECT_FALSE(outcome.replied);
  EXPECT_EQ(object->calls, 0);
}

TEST_F(ServiceConnectionTest, ownsItsExportedObject) {
  std::weak_ptr<Object> watched = object;
  object.reset();
  EXPECT_FALSE(watched.expired());
  connection.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(ServiceConnectionTest, sendsOneWayMessagesOfTheRemoteInterface) {
  connection->setRemoteObjectInterface(
      std::make_shared<const XPCInterface>(XPCInterface{"org.example.Remote",
                                                        {{.selector = "tell:",
                                                          .member = "Tell",
                                                          .arguments = {{"text", XPCKind::String}},
                                                          .oneWay = true}}}));
  connection->sendToRemoteObject("tell:", {std::string("news")});
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].interface, "org.example.Remote");
  EXPECT_EQ(sent[0].member, "Tell");
  EXPECT_EQ(std::get<std::string>(sent[0].values.at(0)), "news");
}

TEST_F(ServiceConnectionTest, logsAMessageThatTheRemoteObjectDoesNotKnow) {
  kwtest::LogRecorder log;
  connection->sendToRemoteObject("tell:", {});
  EXPECT_THAT(log.lines(), testing::ElementsAre("A client's object does not answer tell:"));
  EXPECT_TRUE(sent.empty());
}

} // namespace
