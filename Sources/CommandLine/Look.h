// The command's own look at an item, with the rights of the user.
#pragma once

#include <optional>
#include <string>

namespace kw {

enum class Presence { There, Missing, Unknown };

// Links are not followed. Unknown where a folder above cannot be searched.
Presence presenceOf(const std::string &path);

// Why an item cannot be read; nothing when it can.
std::optional<std::string> obstacleToReading(const std::string &path);

// Why the agent may have failed to overwrite, where it does not say so itself;
// nothing when there is nothing to see.
std::optional<std::string> obstacleToWriting(const std::string &path);

// The same for cutting a file to length zero.
std::optional<std::string> obstacleToTruncation(const std::string &path);

} // namespace kw
