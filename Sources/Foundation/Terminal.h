// Whether a person is watching, and whether one can be asked.
#pragma once

#include <optional>
#include <string>

namespace NS {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();
bool standardErrorIsTerminal();

// Whether a terminal controls this process, wherever its streams lead.
bool hasControllingTerminal();

// Asks on the terminal that controls this process, wherever the standard
// streams lead, and gives the line that is typed, without its end; empty when
// the terminal is gone by then. Nothing when there is no such terminal. Blocks.
std::optional<std::string> answerOnTerminal(const std::string &question);

} // namespace NS
