// What the bodies need to know about UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace NS {

// Whether the text is UTF-8 of Unicode scalar values: no surrogates, nothing
// overlong, nothing beyond U+10FFFF.
bool isValidUTF8(std::string_view text);

// Appends one scalar value.
void appendUTF8(std::string &text, char32_t scalar);

} // namespace NS
