// The service of a name: taking it, clients that leave, their signals, its end.
#include "Service/Linux/BusService.h"
#include "Foundation/Base/Exception.h"
#include "Support/FakeBus.h"
#include "Support/FakeProcess.h"
#include "Support/LogRecorder.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>

namespace {

using namespace NS;
using kwtest::FakeBus;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char *name = "org.example.Service";
constexpr const char *path = "/org/example/Service";
constexpr const char *client = ":1.2"; // whose calls FakeBus::call sends

struct Worker : XPCObject {
  std::promise<void> begun; // one request for work
};

std::shared_ptr<const XPCInterface> service() {
  auto result = std::make_shared<XPCInterface>();
  result->name = name;
  result->methods = {
      {.selector = "answer",
       .member = "Answer",
       .invoker = [](XPCObject &, const XPCValues &, const XPCReply &reply) { reply.send({}); }},
      {.selector = "work", .member = "Work", .invoker = [](XPCObject &object, auto &&...) {
         dynamic_cast<Worker &>(object).begun.set_value();
       }}};
  return result;
}

std::shared_ptr<const XPCInterface> remote() {
  auto result = std::make_shared<XPCInterface>();
  result->name = "org.example.Client";
  result->methods = {
      {.selector = "tell:", .member = "Tell", .arguments = {{"text", XPCKind::String}}}};
  return result;
}

class BusServiceTest : public testing::Test {
protected:
  void serve(FakeBus::Name answer = FakeBus::Name::Given) {
    bus_ = &FakeBus::start(answer);
    service_ =
        std::make_unique<BusService>(name, bus_->address(), service(), remote(),
                                     [this](const std::shared_ptr<XPCConnection> &connection) {
                                       connection->setExportedInterface(service());
                                       connection->setRemoteObjectInterface(remote());
                                       connection->setExportedObject(worker_);
                                       connection->resume();
                                       accepted_.push_back(connection);
                                       return true;
                                     });
    service_->start();
  }

  // Returns when a call of the client has been answered.
  void call() {
    std::uint32_t serial = bus_->call(path, name, "Answer", "", "", 0);
    EXPECT_THAT(bus_->answersWhenAnswered(serial, serial), ElementsAre(""));
  }

  // Returns when the thread of the bus has done all that it was passed before.
  void settle() {
    for (int message = 0; message < 2; ++message) { // it does work between two messages
      std::uint32_t serial = bus_->call("/nowhere", name, "Answer", "", "", 0);
      EXPECT_THAT(bus_->answersWhenAnswered(serial, serial), ElementsAre(Not("")));
    }
  }

  kwtest::LogRecorder log_;
  kwtest::FakeProcess process_;
  std::shared_ptr<Worker> worker_ = std::make_shared<Worker>();
  FakeBus *bus_ = nullptr;
  std::vector<std::shared_ptr<XPCConnection>> accepted_; // used by the bus's thread during calls
  std::unique_ptr<BusService> service_;
};

TEST_F(BusServiceTest, looksForClientsThatLeaveBeforeItTakesTheName) {
  serve();
  EXPECT_THAT(bus_->asked(), ElementsAre("Hello", "AddMatch", "RequestName"));
}

TEST_F(BusServiceTest, raisesWhenTheNameHasAnOwner) {
  try {
    serve(FakeBus::Name::HasOwner);
    FAIL();
  } catch (const Exception &exception) {
    EXPECT_EQ(exception.name(), InternalInconsistencyException);
    EXPECT_THAT(exception.reason(), testing::HasSubstr("\"org.example.Service\""));
    EXPECT_THAT(exception.reason(), testing::EndsWith("it has an owner already"));
  }
}

TEST_F(BusServiceTest, acceptsAClientOnceUntilItLeaves) {
  serve();
  call();
  call();
  EXPECT_EQ(accepted_.size(), 1U);
  bus_->tellThatLeft(client);
  call();
  EXPECT_EQ(accepted_.size(), 2U);
}

TEST_F(BusServiceTest, believesTheBusAloneThatAClientHasLeft) {
  serve();
  call();
  bus_->tellThatLeft(client, ":1.3");
  bus_->tellThatLeft(":1.3");
  call();
  EXPECT_EQ(accepted_.size(), 1U);
}

TEST_F(BusServiceTest, sendsSignalsToItsClientsUntilTheyLeave) {
  serve();
  call();
  accepted_[0]->sendToRemoteObject("tell:", {std::string("text")});
  settle();
  EXPECT_THAT(bus_->signalled(), ElementsAre("Tell"));
  bus_->tellThatLeft(client);
  settle();
  accepted_[0]->sendToRemoteObject("tell:", {std::string("text")});
  settle();
  call();
  EXPECT_THAT(bus_->signalled(), ElementsAre("Tell"));
}

// Of a client that left while the bus was starting this process.
TEST_F(BusServiceTest, endsRequestsOfAClientThatLeftBeforeIfItAskedForThat) {
  for (bool ends : {true, false}) {
    worker_ = std::make_shared<Worker>();
    std::future<void> begun = worker_->begun.get_future();
    serve();
    bus_->holdCredentials();
    kwtest::WireWriter flag;
    flag.number(ends ? 1 : 0);
    bus_->call(path, "org.keepwell.KWRequestControl", "EndRequestsOnLeaving", "b", flag.bytes(), 0);
    bus_->call(path, name, "Work", "", "", 0);
    settle();
    bus_->sayThatClientsAreGone();
    if (ends)
      EXPECT_EQ(begun.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    else
      begun.wait();
  }
}

TEST_F(BusServiceTest, logsASignalThatCannotBeSent) {
  serve();
  call();
  accepted_[0]->sendToRemoteObject("tell:", {true});
  settle();
  EXPECT_THAT(bus_->signalled(), IsEmpty());
  EXPECT_THAT(log_.lines(), ElementsAre(testing::HasSubstr("Tell could not be sent")));
}

TEST_F(BusServiceTest, givesTheNameBackBeforeTheProcessEnds) {
  serve();
  process_.exit(0);
  EXPECT_THAT(bus_->asked(), ElementsAre("Hello", "AddMatch", "RequestName", "ReleaseName"));
}

TEST_F(BusServiceTest, letsTheProcessEndWhenItServesNoMore) {
  serve();
  service_.reset();
  process_.exit(0);
  EXPECT_THAT(bus_->asked(), Not(testing::Contains("ReleaseName")));
}

TEST_F(BusServiceTest, endsTheProcessWhenTheBusIsGone) {
  std::promise<void> ended;
  process_.atExit = [&] { ended.set_value(); };
  serve(); // its thread calls atExit
  bus_->hangUp();
  ended.get_future().wait();
  service_.reset(); // waits for its thread
  EXPECT_EQ(process_.exitStatus, 1);
}

} // namespace
