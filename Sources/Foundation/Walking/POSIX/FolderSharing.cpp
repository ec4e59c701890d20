// Portions by depth, and the first failure.
#include "Foundation/Walking/POSIX/FolderSharing.h"

#include "Foundation/Threads/Internal/Processors.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <utility>

namespace NS {
namespace {

// The number of folders that the walk meets before it starts threads.
constexpr unsigned foldersWithoutCrew = 4;

Descriptor duplicateOf(int folder) {
  return Descriptor(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
}

// Null when there is no descriptor for it.
std::shared_ptr<SharedFolder> portionOf(const FolderChain &original, const FolderChain *copy,
                                        const std::string &rootPath) {
  auto portion = std::make_shared<SharedFolder>();
  portion->original = duplicateOf(original.folder());
  if (copy)
    portion->copy = duplicateOf(copy->folder());
  portion->path = original.pathOf(rootPath, "");
  return portion->original && (portion->copy || !copy) ? portion : nullptr;
}

} // namespace

FolderSharing::FolderSharing() : work_(Processors::shared().usable()) {}

bool FolderSharing::share(const FolderChain &original, const FolderChain *copy,
                          const std::string &rootPath, const FolderWork &work) {
  std::size_t depth = original.depth();
  if (depth > sharedLevels || ++folders_ <= foldersWithoutCrew || !takeDescriptors() ||
      !work_.hasRoom())
    return false;
  std::shared_ptr<SharedFolder> &portion = portions_[depth - 1];
  if (!portion)
    portion = portionOf(original, copy, rootPath);
  return portion && work_.offer(portion, [this, above = portion.get(), work](HelperPlace &place) {
    deal(*above, work, place);
  });
}

// At its next visit the walk may find another folder at this depth.
void FolderSharing::finish(std::size_t depth) {
  if (depth > sharedLevels || !portions_[depth - 1])
    return;
  work_.finish(*portions_[depth - 1]);
  portions_[depth - 1].reset();
}

// Asks once for the descriptors of the walks of the crew. Tells whether it has them.
bool FolderSharing::takeDescriptors() {
  if (!std::exchange(hasAsked_, true))
    descriptors_ = DescriptorBudget::ofWalks().takeSpare(DescriptorBudget::sharesForHelpers);
  return static_cast<bool>(descriptors_);
}

// Runs on any thread.
void FolderSharing::deal(const SharedFolder &above, const FolderWork &work, HelperPlace &place) {
  if (isFailed())
    return;
  try {
    TreeResult failure = work(above, place);
    if (failure && !failure->isGone()) {
      // It is not the requested item.
      failure->item = TreeItem::Inner;
      fail(std::move(*failure));
    }
  } catch (const std::bad_alloc &) {
    fail({{TreeStep::Open, ENOMEM}, TreeItem::Inner, std::string()});
  }
}

void FolderSharing::fail(TreeFailure failure) {
  std::lock_guard lock(mutex_);
  if (!failure_)
    failure_ = std::move(failure);
  failed_.store(true, std::memory_order_relaxed);
}

TreeResult FolderSharing::result() {
  std::lock_guard lock(mutex_);
  return failure_;
}

} // namespace NS
