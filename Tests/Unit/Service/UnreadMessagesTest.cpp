// The rules of how much a client may be sent while it reads nothing.
#include "Service/Linux/UnreadMessages.h"

#include <gmock/gmock.h>

namespace {

using NS::UnreadLimits;
using NS::UnreadMessages;
using Kind = UnreadMessages::Kind;
using Room = UnreadMessages::Room;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr UnreadLimits limits{.perMessage = 0,
                              .perClient = 100,
                              .perClientWithShort = 150,
                              .guaranteed = 10,
                              .altogether = 250,
                              .altogetherForReaders = 600,
                              .reserve = 110,
                              .proof = 50};

class UnreadMessagesTest : public testing::Test {
protected:
  Room room(const char *client, std::size_t bytes) const {
    return unread.roomFor(client, bytes, Kind::Whole);
  }
  // The bus says that the client has left so much.
  void measure(const char *client, std::size_t bytes) {
    unread.asked(client);
    unread.measured(client, bytes);
  }
  void makeReader(const char *client) {
    unread.sent(client, limits.proof);
    measure(client, 0);
  }

  UnreadMessages unread{limits};
};

// Every message that leaves the agent because of a client counts at its real
// size, from every sender.
TEST_F(UnreadMessagesTest, countsEverySentMessage) {
  unread.sent("a", 60);
  unread.sent("a", 1);
  EXPECT_EQ(unread.ofClient("a"), 61U);
  EXPECT_EQ(unread.altogether(), 61U);
}

TEST_F(UnreadMessagesTest, countsAnythingAsReadOnlyWhenTheBusSaysSo) {
  unread.sent("a", 90);
  measure("a", 30);
  EXPECT_EQ(unread.ofClient("a"), 30U);
  EXPECT_EQ(unread.altogether(), 30U);
}

TEST_F(UnreadMessagesTest, countsMessagesBetweenQuestionAndAnswerOnTop) {
  unread.sent("a", 90);
  unread.asked("a");
  unread.sent("a", 5);
  unread.measured("a", 30);
  EXPECT_EQ(unread.ofClient("a"), 35U);
}

TEST_F(UnreadMessagesTest, countsNothingThatOthersSent) {
  unread.sent("a", 20);
  measure("a", 5000);
  EXPECT_EQ(unread.ofClient("a"), 20U);
  measure("a", 0);
  measure("a", 5000);
  EXPECT_EQ(room("a", 200), Room::Enough);
}

TEST_F(UnreadMessagesTest, manyClientsThatLeaveLittleWeighNothing) {
  for (int number = 0; number < 1000; ++number)
    unread.sent(std::to_string(number), limits.guaranteed);
  EXPECT_EQ(unread.altogether(), 0U);
  EXPECT_EQ(room("new", 200), Room::Enough);
}

// A bus may count more for a message than the message has.
TEST_F(UnreadMessagesTest, countsTheOverheadOfTheBusForEachMessage) {
  UnreadLimits adding = limits;
  adding.perMessage = 7;
  UnreadMessages added{adding};
  added.sent("a", 3);
  EXPECT_EQ(added.ofClient("a"), 10U);
  EXPECT_EQ(added.roomFor("a", 83, Kind::Whole), Room::Enough);
  EXPECT_EQ(added.roomFor("a", 84, Kind::Whole), Room::None);
  added.asked("a");
  added.sent("a", 3);
  added.measured("a", 1);
  EXPECT_EQ(added.ofClient("a"), 11U);
}

TEST_F(UnreadMessagesTest, takesNothingThatTheBusAddsForProof) {
  UnreadLimits adding = limits;
  adding.perMessage = 7;
  UnreadMessages added{adding};
  for (std::size_t sent = 0; sent < limits.proof; ++sent) {
    EXPECT_FALSE(added.hasShownThatItReads("a"));
    added.sent("a", 1);
    added.asked("a");
    added.measured("a", 0);
  }
  EXPECT_TRUE(added.hasShownThatItReads("a"));
}

TEST_F(UnreadMessagesTest, keepsItsCountWhenItsLimitsChange) {
  unread.sent("a", 80);
  unread.sent("b", 15);
  UnreadLimits wider = limits;
  wider.guaranteed = 20;
  wider.perClient = 300;
  unread.setLimits(wider);
  EXPECT_EQ(unread.ofClient("a"), 80U);
  EXPECT_EQ(unread.altogether(), 80U);
  EXPECT_EQ(room("a", 160), Room::Enough);
  unread.forget("b");
  unread.forget("a");
  EXPECT_EQ(unread.altogether(), 0U);
}

// The agent asks the bus for a client's unread messages before the limit.
TEST_F(UnreadMessagesTest, asksBeforeTheLimitOfAClientIsReached) {
  unread.sent("a", 50);
  EXPECT_FALSE(unread.isWorthAsking("a"));
  unread.sent("a", 1);
  EXPECT_TRUE(unread.isWorthAsking("a"));
  EXPECT_EQ(room("a", 40), Room::Enough);
}

TEST_F(UnreadMessagesTest, asksBeforeTheLimitOfAllIsReached) {
  for (const char *client : {"a", "b", "c"})
    unread.sent(client, 41);
  EXPECT_THAT(unread.worthAsking(), IsEmpty());
  unread.sent("d", 11);
  unread.sent("e", 10);
  EXPECT_THAT(unread.worthAsking(), ElementsAre("a", "b", "c", "d"));
}

TEST_F(UnreadMessagesTest, asksAboutAClientOnceAtATime) {
  unread.sent("a", 60);
  unread.asked("a");
  EXPECT_TRUE(unread.isAsked("a"));
  EXPECT_FALSE(unread.isWorthAsking("a"));
  unread.measured("a", 60);
  EXPECT_TRUE(unread.isWorthAsking("a"));
  unread.asked("a");
  unread.notMeasured("a");
  EXPECT_TRUE(unread.isWorthAsking("a"));
  EXPECT_EQ(unread.ofClient("a"), 60U);
}

// A client that has nothing unread can always receive one whole message.
TEST_F(UnreadMessagesTest, sendsOneWholeMessageToAClientWithNothingUnread) {
  EXPECT_EQ(room("a", 200), Room::Enough);
  unread.sent("a", 200);
  EXPECT_EQ(room("a", 11), Room::None);
  measure("a", 0);
  EXPECT_EQ(room("a", 200), Room::Enough);
}

TEST_F(UnreadMessagesTest, keepsRoomForReadersWhenOthersLeaveMuch) {
  makeReader("reader");
  for (const char *client : {"a", "b", "c"})
    unread.sent(client, 80);
  EXPECT_EQ(room("reader", 200), Room::Enough);
}

TEST_F(UnreadMessagesTest, triesAnUnknownClientBeforeItTakesThatRoom) {
  for (const char *client : {"a", "b", "c"})
    unread.sent(client, 80);
  EXPECT_EQ(room("d", 200), Room::Unknown);
  EXPECT_TRUE(unread.mayTry("d"));
  unread.sent("d", limits.proof);
  EXPECT_FALSE(unread.mayTry("d"));
  measure("d", limits.proof);
  EXPECT_EQ(room("d", 200), Room::None); // it does not read
  measure("d", 0);
  EXPECT_TRUE(unread.hasShownThatItReads("d"));
  EXPECT_EQ(room("d", 200), Room::Enough);
}

TEST_F(UnreadMessagesTest, trialsLeaveRoomForOneWholeMessage) {
  for (int number = 0; number < 100; ++number) {
    std::string client = std::to_string(number);
    if (unread.mayTry(client))
      unread.sent(client, limits.proof);
  }
  EXPECT_LE(unread.altogether() + limits.reserve, limits.altogetherForReaders);
  makeReader("reader");
  EXPECT_EQ(room("reader", limits.reserve), Room::Enough);
}

TEST_F(UnreadMessagesTest, readersThatStopReadingLeaveRoomForOneWholeMessage) {
  for (int number = 0; number < 100; ++number) {
    std::string client = std::to_string(number);
    makeReader(client.c_str());
    unread.sent(client, 11);
    while (unread.roomFor(client, 20, Kind::Whole) == Room::Enough)
      unread.sent(client, 20);
  }
  EXPECT_LE(unread.altogether() + limits.reserve, limits.altogetherForReaders + 100 * 11);
}

TEST_F(UnreadMessagesTest, allTogetherStayBelowTheirLimit) {
  for (int number = 0; number < 100; ++number) {
    std::string client = std::to_string(number);
    makeReader(client.c_str());
    if (unread.roomFor(client, 90, Kind::Whole) == Room::Enough)
      unread.sent(client, 90);
  }
  EXPECT_LE(unread.altogether(), limits.altogetherForReaders);
  EXPECT_GT(unread.altogether(), limits.altogetherForReaders - 90);
}

// No answer to a client that reads is ever dropped: its next requests are held
// back instead.
TEST_F(UnreadMessagesTest, holdsBackAClientThatLeavesMuchUntilItReads) {
  unread.sent("a", 60);
  EXPECT_EQ(room("a", 40), Room::Enough);
  EXPECT_EQ(room("a", 41), Room::None);
  measure("a", 20);
  EXPECT_EQ(room("a", 41), Room::Enough);
}

TEST_F(UnreadMessagesTest, sendsShortAnswersBeyondThat) {
  unread.sent("a", 100);
  EXPECT_EQ(unread.roomFor("a", 50, Kind::Short), Room::Enough);
  EXPECT_EQ(unread.roomFor("a", 51, Kind::Short), Room::None);
}

TEST_F(UnreadMessagesTest, sendsLittleWhenOthersLeaveMuch) {
  for (int number = 0; number < 100; ++number)
    unread.sent(std::to_string(number), 90);
  EXPECT_EQ(room("d", 10), Room::Enough);
  unread.sent("d", 10);
  EXPECT_NE(room("d", 1), Room::Enough);
}

TEST_F(UnreadMessagesTest, forgetsOneThatIsGone) {
  unread.sent("a", 90);
  unread.sent("b", 20);
  unread.asked("a");
  unread.forget("a");
  unread.forget("a");
  unread.measured("a", 90); // an answer that comes too late
  EXPECT_EQ(unread.ofClient("a"), 0U);
  EXPECT_EQ(unread.altogether(), 20U);
}

} // namespace
