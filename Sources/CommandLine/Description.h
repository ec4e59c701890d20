// The commands as data, for whoever makes completions and manuals of them.
#pragma once

#include "CommandLine/Command.h"

namespace kw {

// Of the declared program and the table that it was declared from:
//   name, version, summary, footer, options, commands
// A command: words ("launchd", "enable"), summary, note, group, arguments,
// options, examples (line, meaning). An argument: name, value, help, required,
// repeatable. An option: the same but for its name, which is a list of names
// with their dashes, and a value that is empty for a flag.
JSONObject description(const CLI::App &app, const CommandTable &commands);

} // namespace kw
