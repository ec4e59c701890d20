// Folders that a walk shares out to a crew; a walk of its own works on each.
// Removals and copies of trees use it. Internal to Foundation.
//
// One walk begins at the root. It shares out folders as it meets them, while
// the crew has too little to do. It enters the others itself, and shares out
// the folders in them. A folder is finished when all its contents are, so at
// the end of a folder the walk waits for the folders that it shared out of it,
// and meanwhile works on shared folders itself.
//
// The folders shared out of one folder are a portion. It keeps the folder open,
// since the walk may close its own descriptor. Only the upper levels are shared,
// which bounds these descriptors. Those of the crew's walks are
// requested before the first folder is shared; when there are none to spare, no
// folder is.
//
// All walks end when one of them fails; the first failure is that of the whole.
#pragma once

#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Threads/Internal/SharedWork.h"
#include "Foundation/Walking/Internal/TreeOutcome.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace NS {

// A folder out of which others are shared.
struct SharedFolder final : SharedWork::Portion {
  Descriptor original;
  Descriptor copy;  // of a walk that makes one
  std::string path; // of the original, for messages
};

class FolderSharing {
public:
  // Works on one folder of the shared one. When the folder itself is gone,
  // because another process has removed it, that is not a failure.
  using FolderWork = std::function<TreeResult(const SharedFolder &above, HelperPlace &place)>;

  FolderSharing();

  // Only the first walk calls the next four functions. This one shares out a
  // folder that the walk met in the chain's lowest folder. The second chain, if
  // any, is in the copy of that folder; the path is that of the root. False when
  // the walk has to enter the folder itself.
  bool share(const FolderChain &original, const FolderChain *copy, const std::string &rootPath,
             const FolderWork &work);
  // Blocks until all folders that were shared out of the folder at this depth (1
  // for the root) are finished; works on shared folders meanwhile.
  void finish(std::size_t depth);
  // The place of the walk's thread.
  HelperPlace &own() { return work_.own(); }
  TreeResult result();

  // Any thread.
  bool isFailed() const { return failed_.load(std::memory_order_relaxed); }
  // Any thread. Keeps the first failure, and ends all walks.
  void fail(TreeFailure failure);

private:
  static constexpr std::size_t sharedLevels = 8;

  bool takeDescriptors();
  void deal(const SharedFolder &above, const FolderWork &work, HelperPlace &place);

  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  TreeResult failure_; // guarded by the mutex
  unsigned folders_ = 0;
  bool hasAsked_ = false;
  DescriptorBudget::Share descriptors_;
  std::array<std::shared_ptr<SharedFolder>, sharedLevels> portions_; // by depth
  SharedWork work_; // last, so that its threads end before all else
};

} // namespace NS
