// Times at and beyond the ends of their range.
#include "Foundation/Base/SaturatedTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace std::chrono;
using Seconds = duration<double>;
using Moment = steady_clock::time_point;

constexpr Moment noon(hours(12));

TEST(SaturatedCast, keepsTimesWithinTheRange) {
  EXPECT_EQ(NS::saturatedCast<nanoseconds>(milliseconds(-3)), nanoseconds(-3'000'000));
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(1.5)), milliseconds(1500));
  EXPECT_EQ(NS::saturatedCast<milliseconds>(nanoseconds::max()),
            duration_cast<milliseconds>(nanoseconds::max()));
  EXPECT_EQ(NS::saturatedCast<nanoseconds>(nanoseconds::max()), nanoseconds::max());
}

TEST(SaturatedCast, stopsAtTheEnds) {
  EXPECT_EQ(NS::saturatedCast<nanoseconds>(milliseconds::max()), nanoseconds::max());
  EXPECT_EQ(NS::saturatedCast<nanoseconds>(milliseconds::min()), nanoseconds::min());
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(1e300)), milliseconds::max());
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(-1e300)), milliseconds::min());
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(infinity)), milliseconds::max());
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(-infinity)), milliseconds::min());
}

TEST(SaturatedCast, makesZeroOfNaN) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(NS::saturatedCast<milliseconds>(Seconds(nan)), milliseconds::zero());
}

TEST(SaturatedSum, stopsAtTheEnds) {
  EXPECT_EQ(NS::saturatedSum(noon, seconds(-1)), noon - seconds(1));
  EXPECT_EQ(NS::saturatedSum(noon, milliseconds::max()), Moment::max());
  EXPECT_EQ(NS::saturatedSum(noon, nanoseconds::max()), Moment::max());
  EXPECT_EQ(NS::saturatedSum(noon, milliseconds::min()),
            noon + nanoseconds::min()); // which can be held
  EXPECT_EQ(NS::saturatedSum(Moment::min(), nanoseconds(-1)), Moment::min());
  EXPECT_EQ(NS::saturatedSum(Moment::max(), nanoseconds::min()), Moment(nanoseconds(-1)));
}

TEST(SaturatedDifference, stopsAtTheEnds) {
  EXPECT_EQ(NS::saturatedDifference(noon, noon + seconds(1)), seconds(-1));
  EXPECT_EQ(NS::saturatedDifference(Moment::min(), noon), nanoseconds::min());
  EXPECT_EQ(NS::saturatedDifference(Moment::max(), -noon.time_since_epoch() + Moment()),
            nanoseconds::max());
  EXPECT_EQ(NS::saturatedDifference(Moment::min(), Moment::min()), nanoseconds::zero());
  EXPECT_EQ(NS::saturatedDifference(Moment::max(), noon), nanoseconds::max() - hours(12));
}

} // namespace
