// Every connection is accepted and set up with an object of its own.
#include "Agent/KWAgentServiceDelegate.h"

#include "Agent/KWPrivilegedOperationProgress.h"
#include "Agent/KWPriviligedOperations.h"
#include "Support/FakeXPCConnection.h"

#include <gmock/gmock.h>

namespace {

using namespace kw;
using kwtest::FakeXPCConnection;
using testing::ElementsAre;

class NoListener : public NS::XPCListener {
public:
  void setDelegate(std::weak_ptr<NS::XPCListenerDelegate>) override {}
  void announce(std::shared_ptr<const NS::XPCInterface>,
                std::shared_ptr<const NS::XPCInterface>) override {}
  void resume() override {}
};

class KWAgentServiceDelegateTest : public testing::Test {
protected:
  std::shared_ptr<FakeXPCConnection> accepted() {
    auto connection = std::make_shared<FakeXPCConnection>();
    EXPECT_TRUE(delegate.listenerShouldAcceptNewConnection(listener, connection));
    return connection;
  }
  static KWPriviligedOperations &operations(FakeXPCConnection &connection) {
    return dynamic_cast<KWPriviligedOperations &>(*connection.exportedObject);
  }

  NoListener listener;
  KWAgentServiceDelegate delegate;
};

TEST_F(KWAgentServiceDelegateTest, setsTheConnectionUpAndResumesItLast) {
  auto connection = accepted();
  EXPECT_THAT(connection->steps, ElementsAre("exportedInterface", "remoteObjectInterface",
                                             "exportedObject", "resume"));
  EXPECT_EQ(connection->exportedInterface, KWPrivilegedOperation::interface());
  EXPECT_EQ(connection->remoteInterface, KWPrivilegedOperationProgress::interface());
}

TEST_F(KWAgentServiceDelegateTest, givesEachConnectionAnObjectOfItsOwn) {
  auto one = accepted();
  auto other = accepted();
  EXPECT_NE(one->exportedObject, other->exportedObject);
  EXPECT_EQ(operations(*one).xpcConnection(), one);
  EXPECT_EQ(operations(*other).xpcConnection(), other);
}

TEST_F(KWAgentServiceDelegateTest, closingOneConnectionDoesNotDisturbTheOther) {
  auto one = accepted();
  auto other = accepted();
  one.reset();
  std::optional<std::string> heard;
  operations(*other).echo("still here", [&](const auto &text, const auto &) { heard = text; });
  EXPECT_EQ(heard, "still here");
  EXPECT_EQ(operations(*other).xpcConnection(), other);
}

TEST_F(KWAgentServiceDelegateTest, leavesTheConnectionToItsOwner) {
  auto connection = accepted();
  auto object = connection->exportedObject;
  std::weak_ptr<FakeXPCConnection> watched = connection;
  connection.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(dynamic_cast<KWPriviligedOperations &>(*object).xpcConnection(), nullptr);
}

} // namespace
