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

// The text, or three dots and its end, which begins with a whole character: at
// most as many bytes as there is room for. The room is at least three.
std::string endOf(const std::string &text, std::size_t room);

} // namespace kw
