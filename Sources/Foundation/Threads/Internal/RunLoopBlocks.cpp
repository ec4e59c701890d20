// Waiting blocks of a run loop.
#include "Foundation/Threads/Internal/RunLoopBlocks.h"

#include "Foundation/Base/Log.h"

#include <algorithm>
#include <cmath>
#include <exception>

namespace NS {
namespace {

using std::chrono::nanoseconds;

bool runsIn(const RunLoopModes &modes, const std::string &mode) {
  return std::any_of(modes.begin(), modes.end(), [&](const std::string &wanted) {
    return wanted == mode || (wanted == RunLoopCommonModes && mode == DefaultRunLoopMode);
  });
}

void runGuarded(const std::function<void()> &block) {
  try {
    block();
  } catch (const std::exception &exception) {
    Log("A run loop block raised: %@", exception.what());
  } catch (...) {
    Log("A run loop block raised something unknown");
  }
}

} // namespace

void RunLoopBlocks::add(std::function<void()> block, const RunLoopModes &modes) {
  addAt(MonotonicTime{}, std::move(block), modes);
}

void RunLoopBlocks::addDelayed(double seconds, std::function<void()> block,
                               const RunLoopModes &modes) {
  constexpr double longest = 9e18; // nanoseconds; keeps the conversion below from overflowing
  double delay = std::isnan(seconds) ? 0 : std::clamp(seconds * 1e9, 0.0, longest);
  MonotonicTime due = Clock::shared().monotonicTime();
  auto wait = nanoseconds(static_cast<std::int64_t>(delay));
  due.sinceStart += std::min(wait, neverDue.sinceStart - due.sinceStart);
  addAt(due, std::move(block), modes);
}

MonotonicTime RunLoopBlocks::firstDue(const std::string &mode) {
  std::lock_guard lock(mutex_);
  auto found = first(mode, next_);
  return found == entries_.end() ? neverDue : found->first.first;
}

bool RunLoopBlocks::performDue(const std::string &mode) {
  // One by one, so that a run within a block finds the later blocks in order.
  std::uint64_t limit = nextNumber();
  MonotonicTime now = Clock::shared().monotonicTime();
  bool ran = false;
  while (std::function<void()> block = take(mode, now, limit)) {
    runGuarded(block);
    ran = true;
  }
  return ran;
}

void RunLoopBlocks::addAt(MonotonicTime due, std::function<void()> block,
                          const RunLoopModes &modes) {
  if (modes.empty() || !block)
    return;
  std::lock_guard lock(mutex_);
  entries_.emplace(Key{due, next_++}, Entry{std::move(block), modes});
}

std::uint64_t RunLoopBlocks::nextNumber() {
  std::lock_guard lock(mutex_);
  return next_;
}

// Removes the first block of the mode that is due and has a number below the
// limit.
std::function<void()> RunLoopBlocks::take(const std::string &mode, MonotonicTime now,
                                          std::uint64_t limit) {
  std::lock_guard lock(mutex_);
  auto found = first(mode, limit);
  if (found == entries_.end() || found->first.first > now)
    return nullptr;
  return std::move(entries_.extract(found).mapped().block);
}

RunLoopBlocks::Entries::iterator RunLoopBlocks::first(const std::string &mode,
                                                      std::uint64_t limit) {
  return std::find_if(entries_.begin(), entries_.end(), [&](const auto &item) {
    return item.first.second < limit && runsIn(item.second.modes, mode);
  });
}

} // namespace NS
