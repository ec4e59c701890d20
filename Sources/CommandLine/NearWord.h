// Finds the command that a user probably meant by a mistyped one.
#pragma once

#include "CommandLine/Command.h"

#include <string>
#include <string_view>
#include <vector>

namespace kw {

// Returns the word that needs the fewest changes to become the given one; empty
// when each needs many.
std::string nearWord(std::string_view given, const std::vector<std::string> &words);

// Makes the complaint about a word that names none of the commands, with the one
// that was probably meant.
std::string suggestionFor(const std::string &given, const CommandTable &commands);

} // namespace kw
