// Puts numbers into words of the default locale: its digits and its decimal
// separator, no grouping. The locale is that of numbers as the environment has
// it when a formatter is made (on hosts with such variables LC_ALL, else
// LC_NUMERIC, else LANG), whether or not the host has installed it.
//
// One thread sets a formatter up; afterwards any number of threads may format
// with it at once.
#pragma once

#include "Foundation/Number.h"

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
  // Zeros at the end of a fraction are dropped.
  virtual void setMaximumFractionDigits(int digits) = 0;

  // Decides by the shortest decimal text of a double, not by its binary value.
  // Nothing when there is no text for the number.
  virtual std::optional<std::string> stringFromNumber(const Number &number) const = 0;
};

} // namespace NS
