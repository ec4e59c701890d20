// The progress of each thread.
#include "Foundation/Base/Progress.h"

#include <algorithm>
#include <new>

namespace NS {
namespace {

thread_local Progress *currentProgress = nullptr;

} // namespace

Progress &Progress::current() {
  // Never destroyed: threads may ask until the very end of the process.
  static auto *inert = new Progress(Inert{});
  return currentProgress ? *currentProgress : *inert;
}

void Progress::cancel() {
  if (!inert_)
    cancelled_.store(true, std::memory_order_relaxed);
}

void Progress::setPath(std::string_view path) {
  if (inert_)
    return;
  path.remove_prefix(path.size() - std::min(path.size(), longestPath));
  wantsPath_.store(false, std::memory_order_relaxed);
  try {
    std::lock_guard lock(mutex_);
    path_.assign(path);
  } catch (const std::bad_alloc &) { // ignored, as in the header
  }
}

Progress::Snapshot Progress::snapshot() {
  if (inert_)
    return {};
  wantsPath_.store(true, std::memory_order_relaxed);
  Snapshot taken{
      items_.load(std::memory_order_relaxed), bytes_.load(std::memory_order_relaxed), {}};
  try {
    std::lock_guard lock(mutex_);
    taken.path = path_;
  } catch (const std::bad_alloc &) { // ignored, as in the header
  }
  return taken;
}

Progress::Scope::Scope(Progress &progress) : former_(currentProgress) {
  currentProgress = &progress;
}

Progress::Scope::~Scope() {
  currentProgress = former_;
}

} // namespace NS
