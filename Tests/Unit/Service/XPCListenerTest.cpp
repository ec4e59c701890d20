// How the ends of a request look on the bus: replies, and each error.
#include "Service/XPCListener.h"
#include "Protocol/Linux/BusValues.h"
#include "Support/FakeBus.h"
#include "Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using namespace NS;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *name = "org.example.Service";
constexpr const char *path = "/org/example/Service";
constexpr const char *reply = "";
constexpr std::size_t largestText = maximumBodyBytes - 5; // beside its length and its NUL

std::string busError(const char *last) {
  return std::string("org.freedesktop.DBus.Error.") + last;
}

XPCMethod method(const char *member, XPCInvoker invoker) {
  return {.selector = member,
          .member = member,
          .replies = {{"text", XPCKind::String}},
          .invoker = std::move(invoker)};
}

XPCMethod replying(const char *member, XPCValues values) {
  return method(member, [values = std::move(values)](XPCObject &, const XPCValues &,
                                                     const XPCReply &way) { way.send(values); });
}

XPCMethod failing(const char *member, const UserInfo &info) {
  XPCMethod made = replying(member, {false, Error("domain", 7, info)});
  made.replies = {{"flag", XPCKind::Flag}, {"error", XPCKind::Error}};
  return made;
}

std::shared_ptr<const XPCInterface> service() {
  auto result = std::make_shared<XPCInterface>();
  result->name = name;
  result->methods = {
      replying("Answer", {std::string("text")}),
      replying("Largest", {std::string(largestText, 'x')}),
      replying("TooLarge", {std::string(largestText + 1, 'x')}),
      replying("TooLargeOnceEncoded", {std::string(largestText / 2, '\xFF')}),
      replying("OfAnotherKind", {true}),
      replying("TooMany", {std::string("a"), std::string("b")}),
      failing("ErrorTooLarge", UserInfo{{"path", std::string(largestText / 2, '\xFF')}}),
      method("NotHere", nullptr),
      method("Throwing", [](XPCObject &, const XPCValues &,
                            const XPCReply &) { throw std::runtime_error("a reason"); }),
      method("Silent", [](XPCObject &, const XPCValues &, const XPCReply &) {}),
      method("Twice",
             [](XPCObject &, const XPCValues &, const XPCReply &way) {
               way.send({std::string("first")});
               way.send({std::string("second")});
               way.fail("third");
             }),
  };
  return result;
}

class Delegate final : public XPCListenerDelegate {
public:
  explicit Delegate(bool accepts) : accepts_(accepts) {}
  bool
  listenerShouldAcceptNewConnection(XPCListener &,
                                    const std::shared_ptr<XPCConnection> &connection) override {
    connection->setExportedInterface(service());
    connection->setExportedObject(std::make_shared<XPCObject>());
    connection->resume();
    return accepts_;
  }

private:
  bool accepts_;
};

class RaisingDelegate final : public XPCListenerDelegate {
public:
  bool listenerShouldAcceptNewConnection(XPCListener &,
                                         const std::shared_ptr<XPCConnection> &) override {
    throw std::runtime_error("nothing to export");
  }
};

class XPCListenerTest : public testing::Test {
protected:
  void listen(std::shared_ptr<XPCListenerDelegate> delegate) {
    bus_ = &kwtest::FakeBus::start();
    delegate_ = std::move(delegate);
    listener_ = XPCListener::listenerWithMachServiceName(name, bus_->address());
    listener_->setDelegate(delegate_);
    listener_->announce(service(), nullptr);
    listener_->resume();
  }

  std::vector<std::string> answers(const char *member, std::uint8_t flags = 0) {
    auto serial = bus_->call(path, name, member, "", "", flags);
    // Handled after it, since it is of the same client.
    auto next = bus_->call(path, name, "Answer", "", "", 0);
    return bus_->answersWhenAnswered(serial, next);
  }

  kwtest::LogRecorder log_;

private:
  kwtest::FakeBus *bus_ = nullptr;
  std::shared_ptr<XPCListenerDelegate> delegate_;
  std::unique_ptr<XPCListener> listener_;
};

TEST_F(XPCListenerTest, answersOnce) {
  listen(std::make_shared<Delegate>(true));
  EXPECT_THAT(answers("Answer"), ElementsAre(reply));
  EXPECT_THAT(answers("Twice"), ElementsAre(reply));
  EXPECT_THAT(answers("Answer", kwtest::FakeBus::noReplyExpected), IsEmpty());
}

TEST_F(XPCListenerTest, reportsUnsupportedMembers) {
  listen(std::make_shared<Delegate>(true));
  EXPECT_THAT(answers("NotHere"), ElementsAre(busError("NotSupported")));
  EXPECT_THAT(answers("Nonsense"), ElementsAre(busError("UnknownMethod")));
}

TEST_F(XPCListenerTest, turnsARequestThatFailedIntoAnError) {
  listen(std::make_shared<Delegate>(true));
  for (const char *member : {"Throwing", "Silent", "OfAnotherKind", "TooMany"})
    EXPECT_THAT(answers(member), ElementsAre(busError("Failed"))) << member;
}

TEST_F(XPCListenerTest, sendsTheLargestReplyAndFailsForALargerOne) {
  listen(std::make_shared<Delegate>(true));
  EXPECT_THAT(answers("Largest"), ElementsAre(reply));
  EXPECT_THAT(answers("TooLarge"), ElementsAre(busError("Failed")));
  EXPECT_THAT(answers("TooLargeOnceEncoded"), ElementsAre(busError("Failed")));
}

TEST_F(XPCListenerTest, leavesOutDetailsOfAnErrorThatIsTooLargeOnceEncoded) {
  listen(std::make_shared<Delegate>(true));
  EXPECT_THAT(answers("ErrorTooLarge"), ElementsAre(reply));
}

TEST_F(XPCListenerTest, deniesAccessWhenTheDelegateRefusesOrIsGone) {
  listen(std::make_shared<Delegate>(false));
  EXPECT_THAT(answers("Answer"), ElementsAre(busError("AccessDenied")));
  listen(nullptr);
  EXPECT_THAT(answers("Answer"), ElementsAre(busError("AccessDenied")));
}

TEST_F(XPCListenerTest, deniesAccessWhenTheDelegateRaises) {
  listen(std::make_shared<RaisingDelegate>());
  EXPECT_THAT(answers("Answer"), ElementsAre(busError("AccessDenied")));
  EXPECT_THAT(log_.lines(), Contains("A connection is refused: nothing to export"));
}

} // namespace
