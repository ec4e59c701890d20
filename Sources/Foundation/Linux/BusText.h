// Text as every receiver on the bus accepts it: UTF-8 without NUL, and without
// the code points that receivers refuse.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NS {

bool isBusText(std::string_view text);

// Each byte that is no such text becomes U+FFFD, which takes three.
std::string busText(std::string_view text);
// The length of busText(text), found without making it.
std::size_t busTextLength(std::string_view text);
// Writes busText(text), of that length, and no NUL behind it.
void writeBusText(std::string_view text, char *target);

} // namespace NS
