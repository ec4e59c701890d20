// The command that a user probably meant by a mistyped one.
#pragma once

#include "CommandLine/Command.h"

#include <string>
#include <string_view>
#include <vector>

namespace kw {

// The word that needs the fewest changes to become the given one, if they are
// few; empty when none is near.
std::string nearWord(std::string_view given, const std::vector<std::string> &words);

// A sentence about a word that names none of the commands.
std::string suggestionFor(const std::string &given, const CommandTable &commands);

} // namespace kw
