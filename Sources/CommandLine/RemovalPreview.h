// The preview of a removal: as a dry run, and in the question before it.
#pragma once

#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPlan.h"

#include <string>
#include <vector>

namespace kw {

// The words for one command's dry run.
struct PreviewWording {
  const char *command;
  const char *would;      // before an item
  bool freesSpace = true; // false for the Trash
  bool mayTakeProtected = false;
};

// The sum of several plans.
struct RemovalSum {
  std::size_t paths = 0; // of existing items
  std::size_t kept = 0;
  std::uint64_t items = 0;
  std::uint64_t allocated = 0;
  std::uint64_t freed = 0;
  bool isAtLeast = false; // some could not be counted
  LargestItems largest{10};

  void add(const RemovalPlan &plan);
  std::string itemsInWords() const;
  // Empty for a single item.
  std::vector<std::string> largestInWords() const;
};

// Reports the effect for each path, then the sum.
int previewRemoval(Session &session, const PathArguments &arguments, const KeepList &keep,
                   const PreviewWording &wording);

// Asks, as in "Remove /srv/old: 4 items, 164 KB?", with the largest of them
// above, and returns the sum. Asks nothing when there is nothing to remove or
// when the command is stopped meanwhile. Throws NotConfirmed.
RemovalSum confirmRemoval(Session &session, const char *verb, const std::vector<std::string> &paths,
                          const KeepList &keep, bool mayTakeProtected);

// Asks for each protected path to be typed. Throws NotConfirmed.
void confirmProtected(Session &session, const char *verb, const std::vector<std::string> &paths);

} // namespace kw
