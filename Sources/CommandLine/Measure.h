// The agent's measurement of a folder that the user cannot look into.
#pragma once

#include "Client/Request.h"
#include "Foundation/Walking/FTS.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kw {

class Session;

inline constexpr std::uint64_t blockBytes = 512;

inline std::uint64_t allocatedBytes(const NS::FTSStat &status) {
  return static_cast<std::uint64_t>(status.blocks) * blockBytes;
}

// The bytes that a folder or an item occupies that this user cannot look into;
// nothing when that cannot be learnt.
using Measure = std::function<std::optional<std::uint64_t>(const std::string &path)>;

// Has the agent measure, where it can be reached.
Measure measuringByAgent(Session &session);

// Told now and then how far a walk has come; gives whether it is to go on.
using Watch = std::function<bool(const RequestProgress &progress)>;

// Shows it to a person who watches, until the command is stopped.
Watch showingAdvance(Session &session);

// Counts the entries of a walk for its watch, of which it bothers it with few.
class WatchedWalk {
public:
  explicit WatchedWalk(const Watch &watch) : watch_(watch) {}

  // Gives whether the walk is to go on.
  bool count(const NS::FTSEntry &entry);

private:
  const Watch &watch_;
  RequestProgress progress_;
};

// The bytes of the item without its own blocks, which the agent's size has
// twice.
inline std::optional<std::uint64_t> heldBytes(const Measure &measure, const NS::FTSEntry &entry) {
  auto bytes = measure ? measure(std::string(entry.path)) : std::nullopt;
  std::uint64_t own = 2 * allocatedBytes(entry.statp);
  return bytes ? std::optional(*bytes > own ? *bytes - own : 0) : std::nullopt;
}

} // namespace kw
