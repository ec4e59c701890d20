// Bounded waits, casts and equality.
#include "Additions/NSObjectAdditions.h"

#include "Foundation/Base/Clock.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Dispatch.h"
#include "Foundation/Threads/NotificationCenter.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Support/AssertionRecorder.h"
#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kw::Block;
using kwtest::AssertionFailure;
using NS::Number;
using NS::String;

void postInterrupted() {
  NS::NotificationCenter::defaultCenter().postNotificationName("PrivilegedAgentHasInterrupted",
                                                               nullptr);
}

// Calls the block on another thread, so late that only a wait sees its work.
std::thread lateThread(Block block) {
  return std::thread([block = std::move(block)] {
    std::this_thread::sleep_for(20ms);
    block();
  });
}

TEST(KWRunBlockAndWait, returnsAtOnceForABlockThatFinishesItself) {
  bool ran = false;
  std::thread::id thread;
  kw::KWRunBlockAndWait([&](const Block &completion) {
    ran = true;
    thread = std::this_thread::get_id();
    completion();
  });
  EXPECT_TRUE(ran);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(KWRunBlockAndWait, waitsForWorkOnAnotherThread) {
  std::atomic<bool> done{false};
  std::thread worker;
  kw::KWRunBlockAndWait([&](const Block &completion) {
    worker = lateThread([&done, completion] {
      done = true;
      completion();
    });
  });
  EXPECT_TRUE(done);
  worker.join();
}

TEST(KWRunBlockAndWait, takesASecondCompletionForNone) {
  kwtest::LogRecorder log;
  kw::KWRunBlockAndWait([](const Block &completion) {
    completion();
    completion();
  });
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWRunBlockAndWait, passesOnExceptionsOfTheBlock) {
  EXPECT_THROW(kw::KWRunBlockAndWait([](const Block &) { throw std::runtime_error("x"); }),
               std::runtime_error);
}

class WaitWithTimeout : public ::testing::Test {
protected:
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override{clock};
};

TEST_F(WaitWithTimeout, endsAtTheMonotonicDeadline) {
  NS::MonotonicTime start = clock.monotonicTime();
  kw::KWRunBlockAndWaitWithTimeout([](const Block &) {}, 30);
  ASSERT_TRUE(clock.monotonicDeadline());
  EXPECT_EQ(clock.monotonicDeadline()->sinceStart - start.sinceStart, 30s);
}

TEST_F(WaitWithTimeout, countsFromWhenTheBlockReturned) {
  NS::MonotonicTime start = clock.monotonicTime();
  kw::KWRunBlockAndWaitWithTimeout([&](const Block &) { clock.advance(5s); }, 30);
  EXPECT_EQ(clock.monotonicDeadline()->sinceStart - start.sinceStart, 35s);
}

TEST_F(WaitWithTimeout, doesNotWaitForABlockThatFinishedItself) {
  kw::KWRunBlockAndWaitWithTimeout([](const Block &completion) { completion(); }, 30);
  EXPECT_FALSE(clock.monotonicDeadline());
}

TEST_F(WaitWithTimeout, doesNotWaitForZeroOrFewerSeconds) {
  for (std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()})
    kw::KWRunBlockAndWaitWithTimeout([](const Block &) {}, seconds);
  EXPECT_FALSE(clock.monotonicDeadline());
}

TEST_F(WaitWithTimeout, allowsTheCompletionToComeLate) {
  Block late;
  kw::KWRunBlockAndWaitWithTimeout([&](const Block &completion) { late = completion; }, 1);
  kwtest::LogRecorder log;
  late();
  late();
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWRunBlockAndWaitWithTimeout, endsWithTheCompletionBeforeALongDeadline) {
  std::thread worker;
  std::atomic<bool> done{false};
  kw::KWRunBlockAndWaitWithTimeout(
      [&](const Block &completion) {
        worker = lateThread([&done, completion] {
          done = true;
          completion();
        });
      },
      std::numeric_limits<std::int64_t>::max());
  EXPECT_TRUE(done);
  worker.join();
}

TEST(KWRunBlockAndWaitUntilAgentInterrupted, endsWithTheCompletion) {
  kw::KWRunBlockAndWaitUntilAgentInterrupted([](const Block &completion) { completion(); });
}

TEST(KWRunBlockAndWaitUntilAgentInterrupted, waitsForTheNotification) {
  std::atomic<bool> posted{false};
  std::thread poster;
  kw::KWRunBlockAndWaitUntilAgentInterrupted([&](const Block &) {
    poster = lateThread([&posted] {
      posted = true;
      postInterrupted();
    });
  });
  EXPECT_TRUE(posted);
  poster.join();
}

TEST(KWRunBlockAndWaitUntilAgentInterrupted, survivesBothInEitherOrder) {
  kwtest::LogRecorder log;
  kw::KWRunBlockAndWaitUntilAgentInterrupted([](const Block &completion) {
    completion();
    postInterrupted();
    postInterrupted();
  });
  Block late;
  kw::KWRunBlockAndWaitUntilAgentInterrupted([&](const Block &completion) {
    postInterrupted();
    completion();
    late = completion;
  });
  late();
  postInterrupted();
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWRunBlockAndWaitUntilAgentInterrupted, survivesBothAtOnceFromTwoThreads) {
  kwtest::LogRecorder log;
  for (int round = 0; round < 500; ++round) {
    auto start = NS::DispatchGroup::create();
    start->enter();
    std::thread completer, poster;
    kw::KWRunBlockAndWaitUntilAgentInterrupted([&](const Block &completion) {
      completer = std::thread([start, completion] {
        start->wait();
        completion();
      });
      poster = std::thread([start] {
        start->wait();
        postInterrupted();
      });
      start->leave();
    });
    completer.join();
    poster.join();
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWRunBlockAndWaitUntilAgentInterrupted, stopsObservingWhenTheWaitIsOver) {
  class CountingCenter final : public NS::NotificationCenter {
  public:
    std::shared_ptr<NS::Object>
    addObserverForName(const std::optional<std::string> &name,
                       const std::shared_ptr<NS::Object> &object,
                       std::function<void(const NS::Notification &)> block) override {
      EXPECT_EQ(name, "PrivilegedAgentHasInterrupted");
      EXPECT_EQ(object, nullptr);
      ++observers;
      return real->addObserverForName(name, object, std::move(block));
    }
    void removeObserver(const std::shared_ptr<NS::Object> &token) override {
      --observers;
      real->removeObserver(token);
    }
    void postNotificationName(const std::string &, const std::shared_ptr<NS::Object> &) override {}

    std::unique_ptr<NS::NotificationCenter> real = NS::NotificationCenter::create();
    int observers = 0;
  } center;
  NS::ScopedOverride<NS::NotificationCenter> override(center);
  kw::KWRunBlockAndWaitUntilAgentInterrupted([&](const Block &completion) {
    EXPECT_EQ(center.observers, 1);
    completion();
  });
  EXPECT_EQ(center.observers, 0);
  EXPECT_THROW(kw::KWRunBlockAndWaitUntilAgentInterrupted(
                   [](const Block &) { throw std::runtime_error("x"); }),
               std::runtime_error);
  EXPECT_EQ(center.observers, 0);
}

struct Protocol {
  virtual ~Protocol() = default;
};
class Conforming : public NS::Object, public Protocol {};

TEST(DynamicCastObject, ofANumberToAStringIsNull) {
  std::shared_ptr<NS::Object> number = Number::numberWithLongLong(7);
  EXPECT_EQ(kw::dynamicCastObject<String>(number), nullptr);
  EXPECT_EQ(kw::dynamicCastObject(NS::Class::of<String>(), number), nullptr);
}

TEST(DynamicCastObject, givesTheObjectForItsClassAndItsBases) {
  std::shared_ptr<NS::Object> number = Number::numberWithLongLong(7);
  EXPECT_EQ(kw::dynamicCastObject<Number>(number), number);
  EXPECT_EQ(kw::dynamicCastObject<NS::Object>(number), number);
  EXPECT_EQ(kw::dynamicCastObject(NS::Class::of<Number>(), number), number);
}

TEST(DynamicCastObject, ofNullIsNull) {
  EXPECT_EQ(kw::dynamicCastObject<String>(nullptr), nullptr);
  EXPECT_EQ(kw::dynamicCastObject(NS::Class::of<String>(), nullptr), nullptr);
}

TEST(CastObject, ofANumberToAStringFailsItsAssertion) {
  kwtest::LogRecorder log;
  std::shared_ptr<NS::Object> number = Number::numberWithLongLong(7);
  try {
    kw::castObject<String>(number);
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InternalInconsistencyException);
    EXPECT_EQ(exception.reason(), "Did fail to cast 7 to NSString");
  }
}

TEST(CastObject, givesTheObjectUnchangedShouldTheHandlerReturn) {
  kwtest::AssertionRecorder recorder;
  std::shared_ptr<NS::Object> number = Number::numberWithLongLong(7);
  EXPECT_EQ(kw::castObject(NS::Class::of<String>(), number), number);
  EXPECT_EQ(kw::castObject<String>(number), nullptr);
  AssertionFailure failure{"Sources/Additions/NSObjectAdditions", "Did fail to cast 7 to NSString"};
  EXPECT_EQ(recorder.failures, (std::vector<AssertionFailure>{failure, failure}));
}

TEST(CastObject, passesNullAndTheRightClass) {
  kwtest::AssertionRecorder recorder;
  std::shared_ptr<NS::Object> text = String::stringWithString("x");
  EXPECT_EQ(kw::castObject<String>(nullptr), nullptr);
  EXPECT_EQ(kw::castObject<String>(text)->string(), "x");
  EXPECT_TRUE(recorder.failures.empty());
}

TEST(DynamicCastToProtocol, givesTheReceiverOnlyIfItConforms) {
  std::shared_ptr<NS::Object> conforming = std::make_shared<Conforming>();
  EXPECT_EQ(kw::dynamicCastToProtocol<Protocol>(conforming).get(),
            dynamic_cast<Protocol *>(conforming.get()));
  EXPECT_NE(kw::dynamicCastToProtocol<Protocol>(conforming), nullptr);
  EXPECT_EQ(kw::dynamicCastToProtocol<Protocol>(std::make_shared<NS::Object>()), nullptr);
  EXPECT_EQ(kw::dynamicCastToProtocol<Protocol>(nullptr), nullptr);
}

TEST(IsEqualObject, isTrueOfNilAndNil) {
  EXPECT_TRUE(kw::isEqualObject(nullptr, nullptr));
}

TEST(IsEqualObject, isFalseOfNilAndAnObject) {
  auto object = String::stringWithString("");
  EXPECT_FALSE(kw::isEqualObject(nullptr, object));
  EXPECT_FALSE(kw::isEqualObject(object, nullptr));
}

TEST(IsEqualObject, asksTheFirstAboutTheSecond) {
  class Agreeable : public NS::Object {
    bool isEqual(const NS::Object &) const override { return true; }
  };
  auto agreeable = std::make_shared<Agreeable>();
  auto text = String::stringWithString("a");
  EXPECT_TRUE(kw::isEqualObject(agreeable, text));
  EXPECT_FALSE(kw::isEqualObject(text, agreeable));
  EXPECT_TRUE(kw::isEqualObject(text, String::stringWithString("a")));
}

TEST(IsEqualObject, doesNotAskWhenBothAreTheSame) {
  class Contrary : public NS::Object {
    bool isEqual(const NS::Object &) const override { return false; }
  };
  auto contrary = std::make_shared<Contrary>();
  EXPECT_TRUE(kw::isEqualObject(contrary, contrary));
}

} // namespace
