// Portions by depth, and the first failure.
#include "Foundation/Walking/Internal/FolderSharing.h"

#include "Foundation/Threads/Internal/Processors.h"

#include <cerrno>
#include <new>
#include <string>
#include <utility>

namespace NS {
namespace {

// The number of folders that the walk meets before it starts threads.
constexpr unsigned foldersWithoutCrew = 4;

} // namespace

FolderSharing::FolderSharing() : work_(Processors::shared().usable()) {}

bool FolderSharing::share(std::size_t depth, const PortionMaker &makePortion,
                          const FolderWork &work) {
  if (depth > sharedLevels || ++folders_ <= foldersWithoutCrew || !mayHold() || !work_.hasRoom())
    return false;
  std::shared_ptr<Portion> &portion = portions_[depth - 1];
  if (!portion)
    portion = makePortion();
  return portion && work_.offer(portion, [this, shared = portion.get(), work](HelperPlace &place) {
    deal(*shared, work, place);
  });
}

// At its next visit the walk may find another folder at this depth.
void FolderSharing::finish(std::size_t depth) {
  if (depth > sharedLevels || !portions_[depth - 1])
    return;
  work_.finish(*portions_[depth - 1]);
  portions_[depth - 1].reset();
}

// Tells whether there are descriptors for the walks of the crew.
bool FolderSharing::mayHold() {
  if (!std::exchange(hasAsked_, true))
    descriptors_ = DescriptorBudget::ofWalks().takeSpare(DescriptorBudget::sharesForHelpers);
  return static_cast<bool>(descriptors_);
}

// Runs on any thread.
void FolderSharing::deal(Portion &portion, const FolderWork &work, HelperPlace &place) {
  if (isFailed())
    return;
  try {
    TreeResult failure = work(portion, place);
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
