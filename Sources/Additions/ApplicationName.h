// The name of an application, prepared once for comparison with the names of
// many files.
//
// Immutable; any thread may use it.
#pragma once

#include "Foundation/Text/RegularExpression.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

class ApplicationName {
public:
  ApplicationName(std::string_view name, std::string_view separator);

  // Tells whether the other name holds this one followed by a number, as the
  // name of a copy does. This name acts as a regular expression; a name that is
  // an invalid expression has no copies. Case does not count.
  bool hasNumberedCopy(std::string_view other) const;
  // Tells whether each word of this name is one of the other's, in any order.
  // Case does not count.
  bool hasItsWordsIn(std::string_view other) const;

private:
  std::string separator_;
  std::vector<std::string> words_; // in lower case
  std::shared_ptr<const NS::RegularExpression> numberedCopy_;
};

} // namespace kw
