// Replies: one outcome for each request, for any handler.
#include "Protocol/XPCInterface.h"

#include <gmock/gmock.h>
#include <thread>

namespace {

using NS::XPCOutcome;
using NS::XPCReply;
using testing::ElementsAre;
using testing::IsEmpty;

class XPCReplyTest : public testing::Test {
protected:
  XPCReply reply() {
    return XPCReply([this](XPCOutcome outcome) { outcomes.push_back(std::move(outcome)); });
  }
  std::vector<XPCOutcome> outcomes;
};

TEST_F(XPCReplyTest, bringsTheValuesThatWereSent) {
  reply().send({true, std::string("text")});
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_TRUE(outcomes[0].replied);
  EXPECT_EQ(std::get<bool>(outcomes[0].values.at(0)), true);
  EXPECT_EQ(std::get<std::string>(outcomes[0].values.at(1)), "text");
}

TEST_F(XPCReplyTest, dropsEveryReplyAfterTheFirst) {
  {
    XPCReply one = reply();
    XPCReply other = one;
    one.send({true});
    other.send({false});
    other.fail("late");
  }
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_EQ(std::get<bool>(outcomes[0].values.at(0)), true);
}

TEST_F(XPCReplyTest, failsWhenTheLastCopyGoesUnanswered) {
  {
    XPCReply one = reply();
    { XPCReply other = one; }
    EXPECT_THAT(outcomes, IsEmpty());
  }
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_FALSE(outcomes[0].replied);
  EXPECT_EQ(outcomes[0].reason, "the request ended without a reply");
}

TEST_F(XPCReplyTest, keepsTheReasonOfAFailure) {
  reply().fail("the reason");
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_FALSE(outcomes[0].replied);
  EXPECT_EQ(outcomes[0].reason, "the reason");
}

TEST_F(XPCReplyTest, countsOneOfTwoThreadsThatReplyAtOnce) {
  for (int round = 0; round < 100; ++round) {
    outcomes.clear();
    XPCReply shared = reply();
    std::thread one([&] { shared.send({true}); });
    std::thread other([&] { shared.send({false}); });
    one.join();
    other.join();
    ASSERT_EQ(outcomes.size(), 1u);
  }
}

TEST(XPCInterface, findsMethodsByMemberAndBySelector) {
  NS::XPCInterface interface {
    "org.example", {
      {"first:", "First", {}, {}}, {
        "second:reply:", "Second", {}, {}
      }
    }
  };
  EXPECT_EQ(interface.methodWithMember("Second"), &interface.methods[1]);
  EXPECT_EQ(interface.methodWithSelector("first:"), &interface.methods[0]);
  EXPECT_EQ(interface.methodWithMember("second:reply:"), nullptr);
  EXPECT_EQ(interface.methodWithSelector("Second"), nullptr);
}

} // namespace
