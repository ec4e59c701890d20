// Regular expressions in the platform's dialect, over patterns of any origin: a
// file's name, a client's argument.
//
// Immutable once built; one expression may be used from many threads at once.
#pragma once

#include "Foundation/Text/StringUtilities.h"

#include <memory>
#include <optional>
#include <string_view>

namespace NS {

// Bits as the platform numbers them.
enum RegularExpressionOptions : unsigned {
  RegularExpressionNone = 0,
  RegularExpressionCaseInsensitive = 1,
};

class RegularExpression {
public:
  // Null when the pattern cannot be built: it is empty, longer than 64 KiB or
  // malformed.
  static std::shared_ptr<const RegularExpression>
  regularExpressionWithPattern(std::string_view pattern, RegularExpressionOptions options);

  virtual ~RegularExpression() = default;

  // The first match anywhere in the text. A search that would take more than a
  // few million backtracking steps or eight megabytes of backtracking state,
  // and a text over one megabyte, count as no match.
  virtual std::optional<ByteRange> firstMatchInString(std::string_view text) const = 0;
};

} // namespace NS
