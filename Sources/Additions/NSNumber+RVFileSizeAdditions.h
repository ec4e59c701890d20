// File sizes as number objects: unsigned, 64 bits, bytes.
#pragma once

#include "Foundation/Values/Number.h"

#include <cstdint>
#include <memory>

namespace kw {

inline std::shared_ptr<NS::Number> numberWithFileSize(std::uint64_t size) {
  return NS::Number::numberWithUnsignedLongLong(size);
}

// The number itself defines the result for a negative value or a fraction.
inline std::uint64_t fileSizeValue(const NS::Number &number) {
  return number.unsignedLongLongValue();
}

} // namespace kw
