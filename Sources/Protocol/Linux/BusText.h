// Text as every receiver on the bus accepts it: UTF-8 without NUL, and without
// the code points that receivers refuse.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NS {

bool isBusText(std::string_view text);

// Replaces each invalid byte by U+FFFD, which takes three bytes.
std::string busText(std::string_view text);
// The length of busText(text), without making it.
std::size_t busTextLength(std::string_view text);
// Writes busText(text), of that length, without a NUL after it.
void writeBusText(std::string_view text, char *target);

} // namespace NS
