// Percent-escaping by the platform's older rules for URL texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace NS {

// Writes as "%XX" every byte that no URL may hold (space, controls, "\"#%<>",
// "[\\]^`{|}", all bytes outside ASCII) and the ASCII characters listed.
// Letters, digits and the other marks stay.
std::string stringByAddingPercentEscapes(std::string_view text,
                                         std::string_view alwaysEscaped = {});

// Replaces the escapes by their bytes. Empty when a percent sign is not
// followed by two hexadecimal digits, or when a run of escapes gives invalid
// UTF-8.
std::optional<std::string> stringByReplacingPercentEscapes(std::string_view text);

} // namespace NS
