// Percent-escaping by the platform's older rules for URL texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace NS {

// Writes as "%XX" every byte that no URL may hold (space, controls, "\"#%<>",
// "[\\]^`{|}", whatever is not ASCII) and the ASCII characters listed. Letters,
// digits and the other marks stay.
std::string stringByAddingPercentEscapes(std::string_view text,
                                         std::string_view alwaysEscaped = {});

// The reverse. Nothing when a percent sign is not followed by two hexadecimal
// digits, or when a run of escapes gives bytes that are not UTF-8.
std::optional<std::string> stringByReplacingPercentEscapes(std::string_view text);

} // namespace NS
