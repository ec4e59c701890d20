// Finds in a tree what can go: the largest files, those that nobody has changed
// for long, and folders that hold nothing. Nothing is changed, no link followed
// and no other volume entered.
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

// Files below the folder, the largest first; a file with several names has one
// of them. What cannot be read is passed over.
std::vector<LargeItem> filesIn(const std::string &folder, const TreeQuery &query,
                               const Watch &watch);

// Folders below the folder that hold nothing but such folders, without those
// inside of them, with what they occupy. One that cannot be read, or that the
// query excludes, holds something.
std::vector<LargeItem> emptyFoldersIn(const std::string &folder, const TreeQuery &query,
                                      const Watch &watch);

} // namespace kw
