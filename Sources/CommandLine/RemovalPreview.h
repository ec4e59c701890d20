// What a removal would take, told before it is made: as a dry run, and in the
// question that is asked first.
#pragma once

#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPlan.h"

#include <string>
#include <vector>

namespace kw {

// How one command's dry run is told.
struct PreviewWording {
  const char *command;
  const char *would;      // before an item
  bool freesSpace = true; // what goes to the Trash does not
};

// Tells for each path what would happen to it, then the sum.
int previewRemoval(Session &session, const PathArguments &arguments, const KeepList &keep,
                   const PreviewWording &wording);

// Asks, as in "Remove /srv/old: 4 items, 164 KB?". Nothing is asked when there
// is nothing to remove. Throws NotConfirmed.
void confirmRemoval(Session &session, const char *verb, const std::vector<std::string> &paths,
                    const KeepList &keep);

// Has the agent measure, where it can be reached.
Measure measuringByAgent(Session &session);

} // namespace kw
