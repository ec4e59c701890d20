// The client on a real bus of its own, against a stand-in that serves the
// agent's name.
#include "Client/Client.h"

#include "Support/PrivateBus.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <map>
#include <sdbus-c++/sdbus-c++.h>
#include <thread>

namespace {

using kw::Client;
using kw::ClientError;

constexpr const char *name = "org.keepwell.pro.agent";
constexpr const char *path = "/org/keepwell/pro/agent";
constexpr const char *interface = "org.keepwell.KWPrivilegedOperation";
constexpr const char *progress = "org.keepwell.KWPrivilegedOperationProgress";

using BusError = sdbus::Struct<std::string, std::int64_t, std::map<std::string, sdbus::Variant>>;
using FlagAnswer = std::tuple<bool, BusError>;

BusError noError() {
  return BusError{std::string(), std::int64_t{0}, {}};
}

// Serves a few members until it goes out of scope.
class StandIn {
public:
  explicit StandIn(const std::string &address)
      : connection_(sdbus::createSessionBusConnectionWithAddress(address)),
        object_(sdbus::createObject(*connection_, path)) {
    object_->registerMethod("Echo").onInterface(interface).implementedAs(
        [](const std::string &text) { return std::make_tuple(text, noError()); });
    object_->registerMethod("MoveItemAtPath")
        .onInterface(interface)
        .implementedAs([](const std::string &, const std::string &) { return nestedError(); });
    object_->registerMethod("FlushDNS").onInterface(interface).implementedAs([]() -> FlagAnswer {
      throw sdbus::Error("org.freedesktop.DBus.Error.NotSupported", "FlushDNS is not here");
    });
    object_->registerMethod("SizeOfItemAtPath")
        .onInterface(interface)
        .implementedAs([](const std::string &) { return std::string("no number"); });
    object_->registerMethod("RepairPermissions").onInterface(interface).implementedAs([this]() {
      if (duringRepair)
        duringRepair(object_->getCurrentlyProcessedMessage()->getSender());
      emitProgress("first\n");
      emitProgress("second\n");
      return std::make_tuple(true, std::int32_t{0}, std::string());
    });
    object_->registerMethod("PleaseTerminate").onInterface(interface).implementedAs([this]() {
      leave();
    });
    object_->registerMethod("RemoveASL")
        .onInterface(interface)
        .implementedAs([this]() -> FlagAnswer {
          leave();
          return {true, noError()};
        });
    object_->registerMethod("SecurelyRemoveItemAtPath")
        .onInterface(interface)
        .implementedAs([this](sdbus::Result<bool, BusError> &&result, const std::string &) {
          unanswered_.push_back(std::move(result));
          received_.set_value();
        });
    object_->registerSignal("ReceiveNewOutput").onInterface(progress).withParameters<std::string>();
    object_->finishRegistration();
    connection_->requestName(name);
    // The bus library's own thread would end the program when the bus goes.
    thread_ = std::thread([this] {
      try {
        connection_->enterEventLoop();
      } catch (const sdbus::Error &) {
      }
    });
  }
  ~StandIn() {
    connection_->leaveEventLoop();
    thread_.join();
  }
  StandIn(const StandIn &) = delete;
  StandIn &operator=(const StandIn &) = delete;

  // The request to shred, which is never answered.
  void waitUntilShredding() { received_.get_future().wait(); }

  // Called by a repair before its first chunk.
  std::function<void(const std::string &caller)> duringRepair;

private:
  static FlagAnswer nestedError() {
    std::map<std::string, sdbus::Variant> cause{
        {"NSLocalizedDescription", sdbus::Variant(std::string("Permission denied"))}};
    BusError underlying{std::string("NSPOSIXErrorDomain"), std::int64_t{13}, cause};
    std::map<std::string, sdbus::Variant> info{
        {"NSFilePath", sdbus::Variant(std::string("/a"))},
        {"count", sdbus::Variant(std::uint64_t{7})},
        {"strange", sdbus::Variant(std::vector<std::string>{"x"})},
        {"NSUnderlyingError", sdbus::Variant(underlying)}};
    return {false, BusError{std::string("NSCocoaErrorDomain"), std::int64_t{513}, info}};
  }

  void emitProgress(const std::string &chunk) {
    auto signal = object_->createSignal(progress, "ReceiveNewOutput");
    signal.setDestination(object_->getCurrentlyProcessedMessage()->getSender());
    signal << chunk;
    object_->emitSignal(signal);
  }

  // As the end of a process looks to the bus: the name goes, no reply comes.
  void leave() { connection_->releaseName(name); }

  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  std::vector<sdbus::Result<bool, BusError>> unanswered_;
  std::promise<void> received_;
  std::thread thread_;
};

ClientError failureOf(const std::function<void()> &request) {
  try {
    request();
  } catch (const ClientError &error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return ClientError(ClientError::Kind::Refused, "", "");
}

class AgentConnectionTest : public testing::Test {
protected:
  void SetUp() override {
    if (!bus.isRunning())
      GTEST_SKIP() << "no dbus-daemon";
    client = Client::connect(bus.address());
  }

  kwtest::PrivateBus bus;
  std::unique_ptr<Client> client;
};

TEST_F(AgentConnectionTest, bringsAnEchoBack) {
  StandIn agent(bus.address());
  for (const char *text : {"hello", "", "Grüße \xE2\x98\x83\n"})
    EXPECT_EQ(client->echo(text).text, text);
}

TEST_F(AgentConnectionTest, decodesAnErrorWithItsCause) {
  StandIn agent(bus.address());
  kw::FlagReply reply = client->moveItemAtPath("/a", "/b");
  EXPECT_FALSE(reply.isDone());
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->domain(), kw::CocoaErrorDomain);
  EXPECT_EQ(reply.error->code(), 513);
  EXPECT_EQ(std::get<std::string>(reply.error->userInfo().at("NSFilePath")), "/a");
  EXPECT_EQ(std::get<std::uint64_t>(reply.error->userInfo().at("count")), 7u);
  EXPECT_FALSE(reply.error->userInfo().contains("strange"));
  EXPECT_FALSE(reply.error->userInfo().contains("NSUnderlyingError"));
  ASSERT_NE(reply.error->underlyingError(), nullptr);
  EXPECT_EQ(reply.error->underlyingError()->code(), 13);
  EXPECT_EQ(reply.error->underlyingError()->localizedDescription(), "Permission denied");
}

TEST_F(AgentConnectionTest, hearsTheProgressAddressedToIt) {
  StandIn agent(bus.address());
  std::string heard;
  kw::RepairReply reply =
      client->repairPermissions([&](const std::string &chunk) { heard += chunk; });
  EXPECT_EQ(reply.attempt, kw::Attempt::Made);
  EXPECT_EQ(heard, "first\nsecond\n");
}

TEST_F(AgentConnectionTest, reportsAnErrorOfTheBusByItsName) {
  StandIn agent(bus.address());
  ClientError error = failureOf([&] { static_cast<void>(client->flushDNS()); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Refused);
  EXPECT_EQ(error.name(), "org.freedesktop.DBus.Error.NotSupported");
  EXPECT_STREQ(error.what(), "FlushDNS is not here");
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(AgentConnectionTest, reportsAReplyThatIsNotAsAgreed) {
  StandIn agent(bus.address());
  ClientError error = failureOf([&] { static_cast<void>(client->sizeOfItemAtPath("/a")); });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadReply);
  EXPECT_EQ(error.effect(), ClientError::Effect::Unknown);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(AgentConnectionTest, doesNotSendTextThatCannotBeSent) {
  StandIn agent(bus.address());
  for (std::string text : {std::string("\xff\xfe"), std::string("/a\0/b", 5)}) {
    ClientError error = failureOf([&] { static_cast<void>(client->echo(text)); });
    EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
  }
  ClientError error = failureOf([&] {
    static_cast<void>(client->slimBinaryWithPath("/a", {"ok", "\xff"}));
  });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
}

TEST_F(AgentConnectionTest, saysThatThereIsNoAgent) {
  for (const auto &request :
       std::vector<std::function<void()>>{[&] { static_cast<void>(client->echo("anybody")); },
                                          [&] { client->pleaseTerminate(); }}) {
    ClientError error = failureOf(request);
    EXPECT_EQ(error.kind(), ClientError::Kind::Unreachable) << error.name();
  }
}

TEST_F(AgentConnectionTest, waitsUntilTheNameHasNoOwner) {
  StandIn agent(bus.address());
  client->pleaseTerminate();
  ClientError error = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Unreachable);
}

TEST_F(AgentConnectionTest, tellsAnAgentThatWentAwayFromOneThatNeverWasThere) {
  auto agent = std::make_unique<StandIn>(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent->waitUntilShredding();
  agent.reset();
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Interrupted);
  EXPECT_EQ(error->effect(), ClientError::Effect::Unknown);
  ClientError next = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(next.kind(), ClientError::Kind::Unreachable);
  EXPECT_EQ(next.effect(), ClientError::Effect::None);
  StandIn another(bus.address());
  EXPECT_EQ(client->echo("again").text, "again");
}

TEST_F(AgentConnectionTest, reportsABusThatGoesAway) {
  StandIn agent(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  bus.kill();
  const ClientError *interrupted = request.wait().error();
  ASSERT_NE(interrupted, nullptr);
  EXPECT_EQ(interrupted->kind(), ClientError::Kind::Interrupted) << interrupted->name();
  ClientError next = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(next.kind(), ClientError::Kind::Unreachable) << next.name();
}

TEST_F(AgentConnectionTest, findsABusThatComesBack) {
  {
    StandIn agent(bus.address());
    EXPECT_EQ(client->echo("before").text, "before");
    bus.kill();
  }
  bus.restart();
  ASSERT_TRUE(bus.isRunning());
  StandIn agent(bus.address());
  EXPECT_EQ(client->echo("after").text, "after");
}

TEST_F(AgentConnectionTest, believesTheProgressOfTheAgentAlone) {
  StandIn agent(bus.address());
  auto stranger = sdbus::createSessionBusConnectionWithAddress(bus.address());
  auto object = sdbus::createObject(*stranger, path);
  int forged = 0;
  agent.duringRepair = [&](const std::string &caller) {
    auto signal = object->createSignal(progress, "ReceiveNewOutput");
    signal.setDestination(caller);
    signal << std::string("forged");
    object->emitSignal(signal);
    // With its answer to this the bus has passed on the signal.
    stranger->requestName("org.keepwell.test" + std::to_string(++forged));
  };
  std::string heard;
  static_cast<void>(client->repairPermissions([&](const std::string &text) { heard += text; }));
  EXPECT_EQ(forged, 1);
  EXPECT_EQ(heard, "first\nsecond\n");
}

TEST_F(AgentConnectionTest, carriesThousandsOfRequestsAtOnce) {
  StandIn agent(bus.address());
  std::vector<kw::Request<kw::EchoReply>> requests;
  for (int number = 0; number < 10'000; ++number)
    requests.push_back(client->echoAsync(std::to_string(number)));
  for (int number = 0; number < 10'000; ++number)
    ASSERT_EQ(requests[static_cast<std::size_t>(number)].get().text, std::to_string(number));
}

TEST_F(AgentConnectionTest, doesNotSendWhatTheBusWouldBreakOffFor) {
  StandIn agent(bus.address());
  ClientError error =
      failureOf([&] { static_cast<void>(client->echo(std::string(17 << 20, 'x'))); });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

} // namespace
