// The functions that the platform's string class has beyond the standard one:
// searching that knows equivalent spellings, case mapping, trimming, splitting,
// and ranges that count UTF-16 units.
//
// Strings should be UTF-8; ill-formed bytes pass through every function
// unchanged. All functions are pure, and any thread may call them.
#pragma once

#include "Foundation/Text/CharacterSet.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NS {

// In UTF-16 units, as the platform counts.
struct Range {
  std::size_t location = 0;
  std::size_t length = 0;
  friend bool operator==(const Range &, const Range &) = default;
};

// In bytes of the string searched.
struct ByteRange {
  std::size_t location = 0;
  std::size_t length = 0;
  friend bool operator==(const ByteRange &, const ByteRange &) = default;
};

enum class ComparisonResult { OrderedAscending = -1, OrderedSame = 0, OrderedDescending = 1 };

enum class StringSearch {
  // Canonically equivalent sequences are equal, and a match never separates a
  // letter from its marks: a plain e does not match an e with an accent, in any
  // spelling.
  Equivalent,
  // Byte for byte.
  Literal,
};

// The first occurrence. An empty target never occurs.
std::optional<ByteRange> rangeOfString(std::string_view text, std::string_view target,
                                       StringSearch search = StringSearch::Equivalent);
// Every occurrence, first to last, none overlapping another.
std::vector<ByteRange> rangesOfString(std::string_view text, std::string_view target,
                                      StringSearch search = StringSearch::Equivalent);
// The pieces between the occurrences, empty ones included: always one more
// than there are occurrences.
std::vector<std::string>
componentsSeparatedByString(std::string_view text, std::string_view separator,
                            StringSearch search = StringSearch::Equivalent);
std::string componentsJoinedByString(const std::vector<std::string> &components,
                                     std::string_view separator);
std::string stringByReplacingOccurrencesOfString(std::string_view text, std::string_view target,
                                                 std::string_view replacement,
                                                 StringSearch search = StringSearch::Equivalent);

// The first character that is in the set.
std::optional<ByteRange> rangeOfCharacterFromSet(std::string_view text, const CharacterSet &set);
std::string stringByTrimmingCharactersInSet(std::string_view text, const CharacterSet &set);

// Full case mapping without the rules of a particular language.
std::string lowercaseString(std::string_view text);
// Tells whether a name or another short text contains the target, which is in
// lower case already, in any case of its letters.
bool containsLowercase(std::string_view text, std::string_view target);
// The first letter in title case and the others in lower case; the text is
// taken as one word.
std::string capitalizedWord(std::string_view word);

// Raises RangeException when the range is not inside the text. A character that
// the range cuts in half gives the replacement character.
std::string substringWithRange(std::string_view text, Range range);

} // namespace NS
