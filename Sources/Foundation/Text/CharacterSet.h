// Sets of characters: the platform's named sets and lists of a caller.
//
// Immutable values; any thread may use them. An ill-formed byte of a string
// belongs to no set.
#pragma once

#include <string>
#include <string_view>

namespace NS {

class CharacterSet {
public:
  // Every separator of Unicode (general category Z), the zero width space, the
  // tab, U+000A to U+000D and U+0085.
  static CharacterSet whitespaceAndNewlineCharacterSet();
  // General category Nd: the decimal digits of every script.
  static CharacterSet decimalDigitCharacterSet();
  static CharacterSet characterSetWithCharactersInString(std::string_view characters);

  bool characterIsMember(char32_t character) const;

private:
  enum class Kind { WhitespaceAndNewline, DecimalDigit, Listed };
  explicit CharacterSet(Kind kind, std::u32string listed = {})
      : kind_(kind), listed_(std::move(listed)) {}

  Kind kind_;
  std::u32string listed_; // sorted
};

} // namespace NS
