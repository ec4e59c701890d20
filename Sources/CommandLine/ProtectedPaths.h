// Paths whose loss would cost the system or a user all that they have: the root
// of the file system, the folders right in it, those of programs and of data
// that the system lives on, and the homes of users.
#pragma once

#include <optional>
#include <string>

namespace kw {

// Returns the reason why the item is left alone, if it is such a folder. It
// follows links of the folders above and resolves dots, so that each path to the
// folder counts. Empty for any other item and for a missing one.
std::optional<std::string> protectionOf(const std::string &path);

} // namespace kw
