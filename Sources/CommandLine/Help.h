// What --help prints, no wider than an ordinary terminal.
#pragma once

#include "CommandLine/Program.h"

#include <string>

namespace kw {

// The help of the whole program, of a noun, or of a command.
std::string helpFor(const Program &program, const DeclaredCommand &command,
                    const Surroundings &surroundings);

// What to do first, in five lines.
std::string firstMinute();

// The note about all commands.
std::string generalNote();

} // namespace kw
