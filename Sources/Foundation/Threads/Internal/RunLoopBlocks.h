// The blocks that wait for a run loop. The queue is our own, because no host's
// loop has these modes and this order. Internal to Foundation.
#pragma once

#include "Foundation/Base/Clock.h"
#include "Foundation/Threads/RunLoop.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace NS {

// Later than every time.
inline constexpr MonotonicTime neverDue{std::chrono::nanoseconds::max()};

// Blocks in the order of their due times, then of their arrival. Thread-safe.
class RunLoopBlocks {
public:
  // Adds a block that is due before all delayed ones.
  void add(std::function<void()> block, const RunLoopModes &modes);
  // A negative delay and NaN count as 0; a block with a delay beyond the range of
  // the clock never runs.
  void addDelayed(double seconds, std::function<void()> block, const RunLoopModes &modes);

  // The due time of the mode's first block.
  MonotonicTime firstDue(const std::string &mode);
  // Runs the mode's blocks that are due, but none added after this call: a
  // block added by another waits for the next turn. Logs an exception that
  // leaves a block. Returns whether any block ran.
  bool performDue(const std::string &mode);

private:
  using Key = std::pair<MonotonicTime, std::uint64_t>;
  struct Entry {
    std::function<void()> block;
    RunLoopModes modes;
  };
  using Entries = std::map<Key, Entry>;

  void addAt(MonotonicTime due, std::function<void()> block, const RunLoopModes &modes);
  std::uint64_t nextNumber();
  std::function<void()> take(const std::string &mode, MonotonicTime now, std::uint64_t limit);
  Entries::iterator first(const std::string &mode, std::uint64_t limit);

  std::mutex mutex_;
  Entries entries_;
  std::uint64_t next_ = 0; // the number of the next block
};

} // namespace NS
