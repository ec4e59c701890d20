// Moments and their description in universal time.
#include "Foundation/Values/Date.h"

#include <cmath>
#include <ctime>
#include <functional>

namespace NS {
namespace {

// The C library's calendar has no years beyond it.
constexpr double farthestDescribed = 6.0e16;

} // namespace

std::shared_ptr<Date> Date::dateWithTimeIntervalSince1970(double seconds) {
  return std::shared_ptr<Date>(new Date(seconds));
}

bool Date::isEqual(const Object &other) const {
  const auto *date = dynamic_cast<const Date *>(&other);
  return date && date->seconds_ == seconds_;
}

std::size_t Date::hash() const {
  return std::hash<double>{}(seconds_);
}

std::string Date::description() const {
  struct tm parts;
  char text[64];
  if (!(std::fabs(seconds_) < farthestDescribed))
    return std::to_string(seconds_);
  auto whole = static_cast<std::time_t>(std::floor(seconds_));
  if (!::gmtime_r(&whole, &parts) ||
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts) == 0)
    return std::to_string(seconds_);
  return text;
}

} // namespace NS
