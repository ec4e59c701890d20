// Messages over a real bus of the test's own.
#include "Protocol/Linux/BusConnection.h"
#include "Protocol/Linux/BusText.h"
#include "Protocol/Linux/BusValues.h"
#include "Support/PrivateBus.h"
#include "Support/ScopedVariable.h"

#include <gmock/gmock.h>

#include <limits>
#include <poll.h>
#include <thread>

namespace {

using namespace NS;
using testing::ElementsAre;
using Kind = BusMessage::Kind;

constexpr const char *name = "org.example.Service";
constexpr const char *path = "/org/example/Service";

class BusConnectionTest : public testing::Test {
protected:
  BusMessage callTo(const std::string &destination, const char *member = "Member") {
    return client_.makeCall(destination, path, name, member);
  }
  static BusMessage nextOf(BusConnection &connection) {
    BusWaker waker;
    while (true) {
      BusMessage message = connection.next();
      // The bus tells each newcomer its name.
      if (message && message.sender() != BusConnection::busName)
        return message;
      if (!message)
        connection.wait(waker, std::nullopt);
    }
  }
  // The bytes that the bus keeps until the connection reads them.
  std::uint32_t unreadBytes(const BusConnection &connection) {
    BusMessage call = client_.makeCall(BusConnection::busName, BusConnection::busPath,
                                       "org.freedesktop.DBus.Debug.Stats", "GetConnectionStats");
    call.write(connection.uniqueName());
    BusMessage reply = client_.callAndWait(call);
    reply.enter('a', "{sv}");
    while (reply.enter('e', "sv")) {
      bool isIt = reply.readText() == "OutgoingBytes";
      if (isIt) {
        reply.enter('v', "u");
        return reply.readUInt32();
      }
      reply.skip("v");
      reply.leave();
    }
    return 0;
  }

  kwtest::PrivateBus bus_;
  BusConnection service_{bus_.address()};
  BusConnection client_{bus_.address()};
};

const std::vector<XPCParameter> everyKind{
    {"flag", XPCKind::Flag},   {"small", XPCKind::Int32},       {"large", XPCKind::Int64},
    {"text", XPCKind::String}, {"texts", XPCKind::StringArray}, {"error", XPCKind::Error},
    {"none", XPCKind::Error}};

XPCValues oneOfEveryKind() {
  UserInfo info{{"text", std::string("words")},
                {"flag", true},
                {"signed", std::int64_t{-1}},
                {"unsigned", std::uint64_t{1} << 63},
                {"fraction", 0.5}};
  auto cause = std::make_shared<const Error>("beneath", 13);
  XPCValues values;
  values.emplace_back(true);
  values.emplace_back(std::numeric_limits<std::int32_t>::min());
  values.emplace_back(std::numeric_limits<std::int64_t>::max());
  values.emplace_back(std::string("Grüße"));
  values.emplace_back(std::vector<std::string>{"a", "", "c"});
  values.emplace_back(Error("domain", -7, info, cause));
  values.emplace_back(std::monostate());
  return values;
}

TEST_F(BusConnectionTest, carriesACallAndItsAnswer) {
  BusMessage call = callTo(service_.uniqueName());
  call.write("question");
  std::uint32_t serial = client_.send(call);
  BusMessage received = nextOf(service_);
  EXPECT_EQ(received.kind(), Kind::Call);
  EXPECT_EQ(received.sender(), client_.uniqueName());
  EXPECT_EQ(received.path(), path);
  EXPECT_EQ(received.interface(), name);
  EXPECT_EQ(received.member(), "Member");
  EXPECT_EQ(received.signature(), "s");
  EXPECT_EQ(received.serial(), serial);
  EXPECT_TRUE(received.expectsReply());
  EXPECT_EQ(received.readText(), "question");

  BusMessage reply = received.makeReply();
  reply.write("answer");
  service_.send(reply);
  BusMessage answer = nextOf(client_);
  EXPECT_EQ(answer.kind(), Kind::Reply);
  EXPECT_EQ(answer.replySerial(), serial);
  EXPECT_EQ(answer.readText(), "answer");
}

TEST_F(BusConnectionTest, carriesAFailure) {
  BusMessage call = callTo(service_.uniqueName());
  std::uint32_t serial = client_.send(call);
  BusMessage failure = nextOf(service_).makeFailure("org.example.Bad", "it went wrong");
  service_.send(failure);
  BusMessage answer = nextOf(client_);
  EXPECT_EQ(answer.kind(), Kind::Failure);
  EXPECT_EQ(answer.replySerial(), serial);
  EXPECT_EQ(answer.errorName(), "org.example.Bad");
  EXPECT_EQ(answer.readText(), "it went wrong");
}

TEST_F(BusConnectionTest, answersNothingByItself) {
  for (const char *interface : {"org.freedesktop.DBus.Peer", "org.freedesktop.DBus.Properties",
                                "org.freedesktop.DBus.Introspectable", "org.example.Nothing"}) {
    BusMessage call = client_.makeCall(service_.uniqueName(), path, interface, "Ping");
    client_.send(call);
    EXPECT_EQ(nextOf(service_).interface(), interface);
  }
  EXPECT_FALSE(service_.next());
}

TEST_F(BusConnectionTest, carriesValuesOfEveryKind) {
  BusMessage sent = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  writeValues(sent, everyKind, oneOfEveryKind());
  client_.send(sent);
  BusMessage received = nextOf(service_);
  EXPECT_EQ(received.kind(), Kind::Signal);
  EXPECT_EQ(received.signature(), busSignature(everyKind));
  XPCValues values = readValues(received, everyKind), expected = oneOfEveryKind();
  for (std::size_t index : {0U, 1U, 2U, 3U, 4U, 6U})
    EXPECT_EQ(values.at(index).index(), expected.at(index).index());
  EXPECT_EQ(std::get<bool>(values[0]), true);
  EXPECT_EQ(std::get<std::int32_t>(values[1]), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(std::get<std::int64_t>(values[2]), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(std::get<std::string>(values[3]), "Grüße");
  EXPECT_THAT(std::get<std::vector<std::string>>(values[4]), ElementsAre("a", "", "c"));
  Error error = std::get<Error>(values[5]), same = std::get<Error>(expected[5]);
  EXPECT_EQ(error.domain(), same.domain());
  EXPECT_EQ(error.code(), same.code());
  EXPECT_EQ(error.userInfo(), same.userInfo());
  ASSERT_TRUE(error.underlyingError());
  EXPECT_EQ(error.underlyingError()->code(), 13);
}

TEST_F(BusConnectionTest, passesOverUserInfoThatItCannotHold) {
  BusMessage sent = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  sent.open('r', "sxa{sv}");
  sent.write("domain");
  sent.write(std::int64_t{1});
  sent.open('a', "{sv}");
  for (const char *key : {"strange", "NSUnderlyingError"}) {
    sent.open('e', "sv");
    sent.write(key);
    sent.open('v', "as");
    sent.write(std::vector<std::string>{"x"});
    sent.close();
    sent.close();
  }
  sent.close();
  sent.close();
  client_.send(sent);
  BusMessage received = nextOf(service_);
  Error error = std::get<Error>(readValue(received, XPCKind::Error));
  EXPECT_TRUE(error.userInfo().empty());
  EXPECT_FALSE(error.underlyingError());
}

TEST_F(BusConnectionTest, refusesToReadAnotherKind) {
  BusMessage sent = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  sent.write("text");
  client_.send(sent);
  BusMessage received = nextOf(service_);
  EXPECT_THROW(received.readInt32(), BusError);
  EXPECT_THROW(readValue(received, XPCKind::StringArray), BusError);
  EXPECT_THROW(readValue(received, XPCKind::Error), BusError);
  EXPECT_EQ(received.readText(), "text");
  EXPECT_THROW(received.readText(), BusError);
  EXPECT_TRUE(received.isAtEnd());
}

TEST_F(BusConnectionTest, countsAMessageAsTheBusDoes) {
  std::string receiver = service_.uniqueName();
  BusMessage large = client_.makeSignal(receiver, path, name, "Large");
  large.write(std::string(1 << 20, 'x')); // more than the socket itself takes
  client_.send(large);
  std::uint32_t before = unreadBytes(service_);
  std::size_t counted = 0;
  for (int number = 0; number < 1000; ++number) {
    BusMessage sent = client_.makeSignal(receiver, path, name, "Values");
    writeValues(sent, everyKind, oneOfEveryKind());
    client_.send(sent);
    counted += sent.size();
  }
  std::uint32_t kept = unreadBytes(service_) - before;
  EXPECT_GE(counted, kept);
  EXPECT_LE(counted, kept + 1000 * 64);
}

TEST_F(BusConnectionTest, refusesValuesThatAreTooLargeInTheirEncodedForm) {
  constexpr std::size_t room = maximumBodyBytes - 5; // beside the length and the NUL
  BusMessage message = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  EXPECT_NO_THROW(message.write(std::string(room, 'x')));
  message = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  EXPECT_THROW(message.write(std::string(room + 1, 'x')), BusMessageTooLarge);
  message = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  EXPECT_THROW(message.write(std::string(room / 2, '\xFF')), BusMessageTooLarge);
  message = client_.makeSignal(service_.uniqueName(), path, name, "Values");
  EXPECT_THROW(message.write(std::vector<std::string>(maximumBodyBytes / 8 + 1)),
               BusMessageTooLarge);
}

TEST_F(BusConnectionTest, takesTheNameOnceOnly) {
  EXPECT_TRUE(service_.requestName(name));
  EXPECT_TRUE(service_.requestName(name));
  EXPECT_FALSE(client_.requestName(name));
  EXPECT_EQ(client_.ownerOfName(name), service_.uniqueName());
  service_.releaseName(name);
  EXPECT_EQ(client_.ownerOfName(name), std::nullopt);
  EXPECT_TRUE(client_.requestName(name));
}

TEST_F(BusConnectionTest, hearsTheSignalsThatItAsksFor) {
  client_.addMatch("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                   "arg0='org.example.Service'");
  service_.requestName(name);
  BusWaker waker;
  while (true) {
    BusMessage message = client_.next();
    if (message && message.member() == "NameOwnerChanged") {
      EXPECT_EQ(message.readText(), name);
      return;
    }
    if (!message)
      client_.wait(waker, std::nullopt);
  }
}

TEST_F(BusConnectionTest, tellsTheErrorOfACall) {
  BusMessage call = callTo("org.example.Nobody");
  try {
    client_.callAndWait(call);
    FAIL() << "nobody answered";
  } catch (const BusError &error) {
    EXPECT_EQ(error.name(), "org.freedesktop.DBus.Error.ServiceUnknown");
  }
}

TEST_F(BusConnectionTest, isLostWithItsBus) {
  bus_.kill();
  BusWaker waker;
  EXPECT_THROW(
      while (true) {
        client_.next();
        client_.wait(waker, std::nullopt);
      },
      BusDisconnected);
  EXPECT_THROW(client_.next(), BusDisconnected);
}

TEST_F(BusConnectionTest, endsItsWaitWhenItIsWokenAndWaitsAgain) {
  BusWaker waker;
  auto isAwake = [&] {
    pollfd descriptor{waker.descriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, 0) > 0;
  };
  std::thread([&] { waker.wake(); }).join();
  EXPECT_TRUE(isAwake());
  while (isAwake()) // the bus's own messages to a new connection end a wait as well
    client_.wait(waker, std::nullopt);
}

// Where no variable tells the address of the session's bus.
TEST_F(BusConnectionTest, findsTheBusInTheFolderOfTheSession) {
  std::string folder = bus_.address();
  folder = folder.substr(std::string("unix:path=").size());
  folder.resize(folder.rfind('/'));
  kwtest::ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", "");
  kwtest::ScopedVariable session("XDG_RUNTIME_DIR", folder);
  BusConnection found("session");
  EXPECT_EQ(client_.ownerOfName(found.uniqueName()), found.uniqueName());
  kwtest::ScopedVariable none("XDG_RUNTIME_DIR", "");
  EXPECT_THROW(BusConnection("session"), BusError);
}

TEST(BusConnection, tellsThatThereIsNoBus) {
  EXPECT_THROW(BusConnection("unix:path=/nonexistent/bus"), BusError);
  EXPECT_THROW(BusConnection("nonsense"), BusError);
}

TEST_F(BusConnectionTest, waitsForASilentBusNoLongerThanItMay) {
  bus_.freeze();
  BusConnection begun(bus_.address(), BusConnection::Opening::Begin);
  EXPECT_FALSE(begun.isAccepted());
  EXPECT_FALSE(begun.waitUntilAccepted(BusConnection::Clock::now()));
  EXPECT_FALSE(
      begun.waitUntilAccepted(BusConnection::Clock::now() + std::chrono::milliseconds(20)));
  bus_.thaw();
  EXPECT_TRUE(begun.waitUntilAccepted(std::nullopt));
  EXPECT_TRUE(begun.isAccepted());
  EXPECT_EQ(client_.ownerOfName(begun.uniqueName()), begun.uniqueName());
}

TEST_F(BusConnectionTest, tellsThatTheBusEndedBeforeItAcceptedTheConnection) {
  bus_.freeze();
  BusConnection begun(bus_.address(), BusConnection::Opening::Begin);
  bus_.kill();
  try {
    static_cast<void>(begun.waitUntilAccepted(std::nullopt));
    FAIL() << "no error";
  } catch (const BusError &error) {
    EXPECT_TRUE(std::string(error.what()).starts_with("The bus cannot be opened: "))
        << error.what();
  }
}

TEST(BusText, knowsItsLength) {
  for (const char *text : {"", "plain", "Gr\xC3\xBC\xC3\x9F", "a\xFF\xFEz", "\xED\xA0\x80"}) {
    EXPECT_EQ(busTextLength(text), busText(text).size());
    EXPECT_EQ(isBusText(text), busText(text) == text);
  }
  EXPECT_FALSE(isBusText(std::string_view("a\0b", 3)));
}

} // namespace
