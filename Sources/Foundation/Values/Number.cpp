// Numbers as objects. Every comparison uses one exact form, since a double
// cannot hold all 64-bit integers and a cast would make unequal numbers equal.
#include "Foundation/Values/Number.h"

#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <type_traits>

#include <fmt/format.h>

namespace NS {
namespace {

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;

template <typename Integer> Integer truncated(double value, double lowest, double pastHighest) {
  if (std::isnan(value))
    return 0;
  if (value < lowest)
    return std::numeric_limits<Integer>::min();
  if (value >= pastHighest)
    return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(value);
}

// A whole number of any of the integer kinds: its sign and its 64 bits.
struct Whole {
  bool negative;
  std::uint64_t bits;
  friend bool operator==(const Whole &, const Whole &) = default;
};

std::optional<Whole> whole(double value) {
  if (std::trunc(value) != value || value < -twoTo63 || value >= twoTo64)
    return std::nullopt;
  if (value < 0)
    return Whole{.negative = true,
                 .bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(value))};
  return Whole{.negative = false, .bits = static_cast<std::uint64_t>(value)};
}
std::optional<Whole> whole(std::int64_t value) {
  return Whole{.negative = value < 0, .bits = static_cast<std::uint64_t>(value)};
}
std::optional<Whole> whole(std::uint64_t value) {
  return Whole{.negative = false, .bits = value};
}
std::optional<Whole> whole(bool value) {
  return Whole{.negative = false, .bits = value};
}

std::optional<Whole> whole(const Number::Value &value) {
  return std::visit([](auto held) { return whole(held); }, value);
}

} // namespace

std::shared_ptr<Number> Number::numberWithBool(bool value) {
  return std::shared_ptr<Number>(new Number(value));
}
std::shared_ptr<Number> Number::numberWithLongLong(std::int64_t value) {
  return std::shared_ptr<Number>(new Number(value));
}
std::shared_ptr<Number> Number::numberWithUnsignedLongLong(std::uint64_t value) {
  return std::shared_ptr<Number>(new Number(value));
}
std::shared_ptr<Number> Number::numberWithDouble(double value) {
  return std::shared_ptr<Number>(new Number(value));
}

bool Number::boolValue() const {
  return std::visit([](auto held) { return held != decltype(held){}; }, value_);
}

std::int64_t Number::longLongValue() const {
  if (const double *held = std::get_if<double>(&value_))
    return truncated<std::int64_t>(*held, -twoTo63, twoTo63);
  return static_cast<std::int64_t>(unsignedLongLongValue());
}

std::uint64_t Number::unsignedLongLongValue() const {
  return std::visit(
      [](auto held) -> std::uint64_t {
        if constexpr (std::is_same_v<decltype(held), double>)
          return truncated<std::uint64_t>(held, 0, twoTo64);
        else
          return static_cast<std::uint64_t>(held);
      },
      value_);
}

double Number::doubleValue() const {
  return std::visit([](auto held) { return static_cast<double>(held); }, value_);
}

bool Number::isEqual(const Object &other) const {
  const auto *number = dynamic_cast<const Number *>(&other);
  if (!number)
    return false;
  std::optional<Whole> mine = whole(value_);
  std::optional<Whole> theirs = whole(number->value_);
  if (mine || theirs)
    return mine == theirs;
  // Only doubles hold fractions.
  return this == number || doubleValue() == number->doubleValue();
}

std::size_t Number::hash() const {
  if (std::optional<Whole> mine = whole(value_))
    return std::hash<std::uint64_t>()(mine->bits);
  return std::hash<double>()(doubleValue());
}

std::string Number::description() const {
  return std::visit(
      [](auto held) {
        if constexpr (std::is_same_v<decltype(held), bool>)
          return std::string(held ? "1" : "0");
        else
          return fmt::format("{}", held);
      },
      value_);
}

} // namespace NS
