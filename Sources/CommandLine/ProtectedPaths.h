// Paths whose loss would cost the system or a user all that they have: the root
// of the file system, the folders right in it, those of programs and of data
// that the system lives on, and the homes of users.
#pragma once

#include <optional>
#include <string>

namespace kw {

// Why the item is left alone, if it is such a folder, under whatever path: links
// of the folders above are followed, dots resolved. Nothing for what is no such
// folder or is not there.
std::optional<std::string> protectionOf(const std::string &path);

} // namespace kw
