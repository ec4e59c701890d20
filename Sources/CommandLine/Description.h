// The commands as data, for the makers of completions and manuals.
#pragma once

#include "CommandLine/Program.h"

namespace kw {

//   name, version, summary, footer, options, commands
// A command: words ("launchd", "enable"), summary, note, group, arguments,
// options, examples (line, meaning). An argument: name, value, help, required,
// repeatable. An option: the same but for its name, which is a list of names
// with their dashes, and a value that is empty for a flag.
JSONObject description(const Program &program);

} // namespace kw
