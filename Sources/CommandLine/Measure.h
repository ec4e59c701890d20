// The parts that the walks of the commands share: the agent's measurement of a
// folder that the user cannot read, and the report of their progress.
#pragma once

#include "Client/Request.h"
#include "Foundation/Walking/FTS.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kw {

class Session;

// Returns the bytes of an item that this user cannot read; empty if they cannot
// be measured.
using Measure = std::function<std::optional<std::uint64_t>(const std::string &path)>;

// Has the agent measure: empty for an item when the agent cannot be reached or
// does not answer within the time limit, which holds for each item.
Measure measuringByAgent(Session &session,
                         std::optional<std::chrono::milliseconds> limit = std::nullopt);

// A walk calls it now and then with its progress. Returns whether the walk goes
// on.
using Watch = std::function<bool(const RequestProgress &progress)>;

// Shows the progress to a person who watches, until the command is stopped.
Watch showingAdvance(Session &session);

// Counts the entries of a walk, and calls its watch for one entry of many.
class WatchedWalk {
public:
  explicit WatchedWalk(const Watch &watch) : watch_(watch) {}

  // Returns whether the walk goes on.
  bool count(const NS::FTSEntry &entry);

private:
  const Watch &watch_;
  RequestProgress progress_;
};

// Has the bytes of all that the item holds measured: the measured size without
// the item's own blocks, which the agent counts twice.
inline std::optional<std::uint64_t> heldBytes(const Measure &measure, const NS::FTSEntry &entry) {
  auto bytes = measure ? measure(std::string(entry.path)) : std::nullopt;
  std::uint64_t own = 2 * entry.statp.allocatedBytes();
  return bytes ? std::optional(*bytes > own ? *bytes - own : 0) : std::nullopt;
}

} // namespace kw
