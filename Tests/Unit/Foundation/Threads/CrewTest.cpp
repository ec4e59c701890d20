// The threads that help one operation.
#include "Foundation/Threads/Internal/Crew.h"

#include "Support/ForkedChild.h"
#include "Support/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <sys/resource.h>
#include <thread>

namespace {

using NS::Crew;
using NS::HelperPlace;

TEST(Crew, hasAHelperForEachPlaceAtOnce) {
  kwtest::Signal goesOn;
  std::atomic<int> helpers = 0;
  Crew crew(4, [&](HelperPlace &) {
    ++helpers;
    goesOn.wait();
  });
  EXPECT_TRUE(crew.call());
  EXPECT_FALSE(crew.takePlace()) << "every place is taken";
  EXPECT_TRUE(crew.call()) << "they still work";
  goesOn.raise();
  crew.join();
  EXPECT_EQ(helpers, 3) << "the operation's own thread uses a processor too";
}

TEST(Crew, startsAHelperAnewThatHadNothingToDo) {
  std::atomic<bool> isHeld = false;
  std::atomic<int> helpers = 0;
  Crew crew(2, [&](HelperPlace &) {
    ++helpers;
    while (isHeld)
      std::this_thread::yield();
  });
  for (int round = 1; round <= 30; ++round) { // more than it has members
    isHeld = true;
    EXPECT_TRUE(crew.call());
    isHeld = false;
    crew.join();
    EXPECT_EQ(helpers, round);
  }
}

TEST(Crew, hasNoHelperWhereNoThreadCanBeMade) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              rlimit none = {0, 0};
              if (::setrlimit(RLIMIT_NPROC, &none) != 0 ||
                  (kwtest::isRoot() && !kwtest::dropRoot()))
                return "threads can still be made";
              Crew crew(2, [](HelperPlace &) {});
              if (crew.call() || crew.call())
                return "it has one";
              return crew.takePlace() ? "" : "the place is lost";
            }),
            "");
}

} // namespace
