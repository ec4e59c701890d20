// Folders that a walk shares out to a crew, each to be dealt with by a walk of
// its own. Removals and copies of trees work by it. For bodies of the seam only.
//
// One walk begins at the root. As it meets folders it shares them out, as long
// as the crew has not enough to do already; into others it goes itself, and
// shares out what it meets there. A folder is finished when all that it holds
// is, so the walk waits at the end of a folder for what it shared out of it, and
// meanwhile deals with shared folders itself.
//
// What was shared out of one folder is a portion. It keeps descriptors of the
// folder open, since the walk may close its own. Only the upper levels are
// shared, which bounds these descriptors; those of the crew's walks are asked
// for before the first folder is shared, and where there are none to spare
// nothing is.
//
// All walks end when one of them fails; the first failure is that of the whole.
#pragma once

#include "Foundation/DescriptorBudget.h"
#include "Foundation/POSIX/SharedWork.h"
#include "Foundation/POSIX/TreeOutcome.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

namespace NS {

class FolderSharing {
public:
  using Portion = SharedWork::Portion;
  // Null when it cannot be had.
  using PortionMaker = std::function<std::shared_ptr<Portion>()>;
  // Deals with one folder. A failure of the folder itself that means that it is
  // gone is none: another has removed it.
  using FolderWork = std::function<TreeResult(Portion &portion, HelperPlace &place)>;

  FolderSharing();

  // The following four by the first walk alone. Shares a folder out that was met
  // in the one at this depth, 1 for the root. False when it is the walk's own.
  bool share(std::size_t depth, const PortionMaker &makePortion, const FolderWork &work);
  // Returns when all that was shared out of the folder at this depth is dealt
  // with.
  void finish(std::size_t depth);
  // The place of the walk's thread.
  HelperPlace &own() { return work_.own(); }
  TreeResult result();

  bool isFailed() const { return failed_.load(std::memory_order_relaxed); }
  // The first failure counts.
  void fail(TreeFailure failure);

private:
  static constexpr std::size_t sharedLevels = 8;

  bool mayHold();
  void deal(Portion &portion, const FolderWork &work, HelperPlace &place);

  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  TreeResult failure_; // guarded by the mutex
  unsigned folders_ = 0;
  bool hasAsked_ = false;
  DescriptorBudget::Share descriptors_;
  std::array<std::shared_ptr<Portion>, sharedLevels> portions_; // by depth
  SharedWork work_; // last, so that its threads end before all else
};

} // namespace NS
