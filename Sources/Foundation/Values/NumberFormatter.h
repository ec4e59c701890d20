// Formats numbers in the default locale: its digits and its decimal separator,
// no grouping. The locale is the environment's locale for numbers when a
// formatter is made (on hosts with such variables LC_ALL, else LC_NUMERIC, else
// LANG), even if the host has not installed it.
//
// One thread sets a formatter up; afterwards any number of threads may format
// with it at once.
#pragma once

#include "Foundation/Values/Number.h"

#include <memory>
#include <optional>
#include <string>

namespace NS {

enum class NumberFormatterRoundingMode {
  HalfEven, // a half goes to the even neighbour
  HalfUp,   // a half goes away from zero
};

class NumberFormatter {
public:
  virtual ~NumberFormatter() = default;
  // Whole numbers, rounded half to even, at least one digit.
  static std::unique_ptr<NumberFormatter> create();

  virtual void setRoundingMode(NumberFormatterRoundingMode mode) = 0;
  virtual void setMinimumIntegerDigits(int digits) = 0;
  // Drops zeros at the end of a fraction.
  virtual void setMaximumFractionDigits(int digits) = 0;

  // Rounds by the shortest decimal text of a double, not by its binary value.
  // Empty when there is no text for the number.
  virtual std::optional<std::string> stringFromNumber(const Number &number) const = 0;
};

} // namespace NS
