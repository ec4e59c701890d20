// What somebody may have meant who mistyped a command.
#pragma once

#include "CommandLine/Command.h"

#include <string>
#include <string_view>
#include <vector>

namespace kw {

// The word that needs the fewest changes to become the given one, if they are
// few; empty when none is near.
std::string nearWord(std::string_view given, const std::vector<std::string> &words);

// A sentence about the first word that names no command; empty when all do.
std::string suggestionFor(const CommandTable &commands, int count, const char *const *arguments);

} // namespace kw
