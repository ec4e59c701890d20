// The command's own look at an item, with the rights of the user.
#pragma once

#include <optional>
#include <string>

namespace kw {

enum class Presence { There, Missing, Unknown };

// Tells whether an item is there, without following it if it is a link. Unknown
// when a folder above cannot be searched.
Presence presenceOf(const std::string &path);

// Returns why an item cannot be read; empty when it can.
std::optional<std::string> obstacleToReading(const std::string &path);

// Returns a likely reason why the agent failed to change an item, for requests
// whose reply gives none; empty when none can be seen.
std::optional<std::string> obstacleToWriting(const std::string &path);

// The same for cutting a file to length zero.
std::optional<std::string> obstacleToTruncation(const std::string &path);

} // namespace kw
