// The program `keepwell`, apart from its process entry.
#pragma once

#include "CommandLine/Session.h"

namespace kw {

// Reads the arguments, runs the command and returns the exit status.
int runCommandLine(int count, const char *const *arguments, const Surroundings &surroundings);

} // namespace kw
