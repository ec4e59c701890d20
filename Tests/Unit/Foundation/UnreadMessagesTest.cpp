// How much a client may be sent while it reads nothing.
#include "Foundation/Linux/UnreadMessages.h"

#include <gmock/gmock.h>

namespace {

using NS::UnreadLimits;
using NS::UnreadMessages;

constexpr UnreadLimits limits{
    .perClient = 100, .altogether = 250, .perClientWithRefusals = 150, .guaranteed = 10};

TEST(UnreadMessages, aClientMayBeSentUpToItsLimit) {
  UnreadMessages unread(limits);
  unread.sent("a", 60);
  EXPECT_TRUE(unread.hasRoom("a", 40));
  EXPECT_FALSE(unread.hasRoom("a", 41));
  EXPECT_TRUE(unread.hasRoom("b", 100));
}

TEST(UnreadMessages, aRefusalMayGoBeyondTheLimit) {
  UnreadMessages unread(limits);
  unread.sent("a", 100);
  EXPECT_FALSE(unread.hasRoom("a", 1));
  EXPECT_TRUE(unread.hasRoomForRefusal("a", 50));
  EXPECT_FALSE(unread.hasRoomForRefusal("a", 51));
}

TEST(UnreadMessages, oneThatHasReadEverythingMayBeSentAMessageLargerThanItsLimit) {
  UnreadMessages unread(limits);
  EXPECT_TRUE(unread.hasRoom("a", 200));
  unread.sent("a", 200);
  EXPECT_FALSE(unread.hasRoom("a", 1));
  unread.measured("a", 0);
  EXPECT_TRUE(unread.hasRoom("a", 200));
}

TEST(UnreadMessages, whatIsMeasuredTakesThePlaceOfWhatWasCounted) {
  UnreadMessages unread(limits);
  unread.sent("a", 90);
  unread.measured("a", 30);
  EXPECT_EQ(unread.ofClient("a"), 30U);
  EXPECT_EQ(unread.altogether(), 30U);
  unread.sent("a", 5);
  EXPECT_EQ(unread.ofClient("a"), 35U);
}

TEST(UnreadMessages, allTogetherStayBelowTheirLimit) {
  UnreadMessages unread(limits);
  for (const char *client : {"a", "b", "c"})
    unread.sent(client, 80);
  EXPECT_FALSE(unread.hasRoom("d", 11)); // although it has read everything
  EXPECT_FALSE(unread.hasRoomForRefusal("a", 11));
  unread.measured("b", 0);
  EXPECT_TRUE(unread.hasRoom("d", 11));
}

TEST(UnreadMessages, aSmallMessageGoesWhateverTheOthersLeave) {
  UnreadMessages unread(limits);
  for (const char *client : {"a", "b", "c"})
    unread.sent(client, 90);
  EXPECT_TRUE(unread.hasRoom("d", 10));
  unread.sent("d", 10);
  EXPECT_FALSE(unread.hasRoom("d", 1));
}

TEST(UnreadMessages, oneThatIsGoneLeavesNothing) {
  UnreadMessages unread(limits);
  unread.sent("a", 90);
  unread.sent("b", 5);
  unread.forget("a");
  unread.forget("a");
  EXPECT_EQ(unread.ofClient("a"), 0U);
  EXPECT_EQ(unread.altogether(), 5U);
}

TEST(UnreadMessages, namesThoseWhoLeaveMuch) {
  UnreadMessages unread(limits);
  unread.sent("a", 11);
  unread.sent("b", 10);
  unread.sent("c", 90);
  EXPECT_THAT(unread.clientsWithMoreThanGuaranteed(), testing::ElementsAre("a", "c"));
}

} // namespace
