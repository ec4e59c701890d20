// The commands for the user's Trash.
#pragma once

#include "CommandLine/Command.h"
#include "CommandLine/PathRequests.h"

namespace kw {

// `trash list`, `trash restore` and `trash empty`.
CommandTable trashVerbs();

// Moves items to that Trash, with the user's own rights; where they do not
// suffice the agent is to be asked.
Here trashingHere(Session &session);

} // namespace kw
