// A number or a truth value as an object, for values of unknown class.
// Immutable.
#pragma once

#include "Foundation/Base/Object.h"

#include <cstdint>
#include <variant>

namespace NS {

class Number final : public Object {
public:
  using Value = std::variant<bool, std::int64_t, std::uint64_t, double>;

  static std::shared_ptr<Number> numberWithBool(bool value);
  static std::shared_ptr<Number> numberWithLongLong(std::int64_t value);
  static std::shared_ptr<Number> numberWithUnsignedLongLong(std::uint64_t value);
  static std::shared_ptr<Number> numberWithDouble(double value);

  // The value of its construction.
  const Value &value() const { return value_; }

  // Conversions never fail. Between the integers they keep the low 64 bits. A
  // double loses its fraction and stops at the nearest value of the type; NaN
  // becomes 0. Every value but zero is true.
  bool boolValue() const;
  std::int64_t longLongValue() const;
  std::uint64_t unsignedLongLongValue() const;
  double doubleValue() const;

  // Compares the exact numeric value across kinds: 1, 1.0 and true are equal.
  bool isEqual(const Object &other) const override;
  std::size_t hash() const override;
  // Decimal digits, "1" and "0" for truth values, the shortest text that
  // reads back as the same double.
  std::string description() const override;

private:
  explicit Number(Value value) : value_(value) {}

  const Value value_;
};

} // namespace NS
