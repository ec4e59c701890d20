// Tells whether a terminal is attached, and asks questions on it. Thread-safe.
#pragma once

#include <optional>
#include <string>

namespace NS {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();
bool standardErrorIsTerminal();

// Tells whether a terminal controls this process, wherever its streams lead.
bool hasControllingTerminal();

// Asks on the terminal that controls this process, wherever the standard
// streams lead, and returns the typed line without its end; an empty string
// when the terminal is gone by then, and an empty optional without such a
// terminal. Blocks.
std::optional<std::string> answerOnTerminal(const std::string &question);

} // namespace NS
