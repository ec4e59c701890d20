// Shortens untrusted text for a log.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NS {

// Returns the text. When it is longer than the limit, in bytes, returns its
// beginning and its end with "[… N bytes …]" between them. Cuts no character of
// UTF-8 in two. The result is at most 40 bytes longer than the limit.
std::string boundedText(std::string_view text, std::size_t limit);

} // namespace NS
