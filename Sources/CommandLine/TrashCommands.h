// The commands for the user's Trash.
#pragma once

#include "CommandLine/Command.h"
#include "CommandLine/PathRequests.h"

namespace kw {

// `trash list`, `trash restore` and `trash empty`.
CommandTable trashVerbs();

// Moves items to that Trash with the user's own rights; null for an item for
// which they do not suffice, so that the agent is asked.
Here trashingHere(Session &session);

} // namespace kw
