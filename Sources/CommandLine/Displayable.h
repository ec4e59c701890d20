// Text from elsewhere, such as names, for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace kw {

// Whether the character acts on a terminal, or on the text around it, instead
// of showing: controls, and those that turn the direction of writing.
bool isHiddenCharacter(char32_t character);

// The text with such characters, bytes of invalid UTF-8, and backslashes
// escaped: \x1b, \u202e, \\ . Two different texts never look the same.
std::string displayable(std::string_view text);

} // namespace kw
