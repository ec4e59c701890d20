// Comparison of application names.
#include "Additions/ApplicationName.h"

#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Format.h"
#include "Foundation/Text/StringUtilities.h"

#include <algorithm>

namespace kw {

ApplicationName::ApplicationName(std::string_view name, std::string_view separator)
    : separator_(separator),
      words_(NS::componentsSeparatedByString(NS::lowercaseString(name), separator)),
      numberedCopy_(NS::RegularExpression::regularExpressionWithPattern(
          NS::stringWithFormat("(%@)( )*[0-9]+", name), NS::RegularExpressionCaseInsensitive)) {}

bool ApplicationName::hasNumberedCopy(std::string_view other) const {
  return isMatchedByRegex(other, numberedCopy_.get());
}

bool ApplicationName::hasItsWordsIn(std::string_view other) const {
  auto others = NS::componentsSeparatedByString(NS::lowercaseString(other), separator_);
  std::sort(others.begin(), others.end());
  return std::all_of(words_.begin(), words_.end(), [&](const std::string &word) {
    return std::binary_search(others.begin(), others.end(), word);
  });
}

} // namespace kw
