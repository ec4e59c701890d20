// Arithmetic with times that gives the earliest or the latest time instead of
// overflowing. Pure; any thread.
#pragma once

#include <chrono>

namespace NS {

// The nearest value that the other unit can hold; 0 for NaN.
template <typename To, typename Rep, typename Period>
constexpr To saturatedCast(std::chrono::duration<Rep, Period> time) {
  using Wide = std::chrono::duration<long double, Period>;
  bool isNumber = time < time.zero() || time >= time.zero();
  if (!isNumber)
    return To::zero();
  if (Wide(time) >= Wide(To::max()))
    return To::max();
  if (Wide(time) <= Wide(To::min()))
    return To::min();
  return std::chrono::duration_cast<To>(time);
}

template <typename Clock, typename Duration, typename Rep, typename Period>
constexpr std::chrono::time_point<Clock, Duration>
saturatedSum(std::chrono::time_point<Clock, Duration> moment,
             std::chrono::duration<Rep, Period> time) {
  using Moment = std::chrono::time_point<Clock, Duration>;
  Duration start = moment.time_since_epoch();
  Duration step = saturatedCast<Duration>(time);
  if (step > Duration::zero() && start > Duration::max() - step)
    return Moment::max();
  if (step < Duration::zero() && start < Duration::min() - step)
    return Moment::min();
  return moment + step;
}

// The time from one moment to the other.
template <typename Clock, typename Duration>
constexpr Duration saturatedDifference(std::chrono::time_point<Clock, Duration> end,
                                       std::chrono::time_point<Clock, Duration> begin) {
  Duration from = begin.time_since_epoch();
  Duration to = end.time_since_epoch();
  if (from < Duration::zero() && to > Duration::max() + from)
    return Duration::max();
  if (from > Duration::zero() && to < Duration::min() + from)
    return Duration::min();
  return end - begin;
}

} // namespace NS
