// Finds removable items in a tree: the largest files, those unchanged for long,
// and empty folders. Changes nothing, follows no link and enters no other
// volume.
#pragma once

#include "CommandLine/LargestItems.h"
#include "CommandLine/Measure.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace kw {

struct TreeQuery {
  std::size_t most = std::numeric_limits<std::size_t>::max(); // files
  // Only files that were changed last at that time or before, in seconds since
  // 1970.
  std::optional<std::int64_t> unchangedSince = std::nullopt;
  std::vector<std::string> excluded{}; // patterns as those of KeepList
};

struct TreeFindings {
  std::vector<LargeItem> items{};
  // The errno value of a walk that was given up, which the items do not show;
  // ECANCELED when the watch ended it.
  int failure = 0;
};

// Files below the folder, the largest first. A file with several names comes
// once, by one of them. Passes over items that cannot be read.
TreeFindings filesIn(const std::string &folder, const TreeQuery &query, const Watch &watch);

// Folders below the folder that hold no item, or only such folders, with their
// sizes; leaves out those inside of others. A folder that cannot be read, or that
// the query excludes, counts as not empty.
TreeFindings emptyFoldersIn(const std::string &folder, const TreeQuery &query, const Watch &watch);

} // namespace kw
