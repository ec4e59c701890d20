// A moment as an object, for values of unknown class. Immutable.
#pragma once

#include "Foundation/Base/Object.h"

namespace NS {

class Date final : public Object {
public:
  // Seconds, with fractions.
  static std::shared_ptr<Date> dateWithTimeIntervalSince1970(double seconds);

  double timeIntervalSince1970() const { return seconds_; }

  bool isEqual(const Object &other) const override;
  std::size_t hash() const override;
  // "2001-01-01 00:00:00 +0000".
  std::string description() const override;

private:
  explicit Date(double seconds) : seconds_(seconds) {}

  const double seconds_;
};

} // namespace NS
