// Removal from the leaves up: files as they are met, a folder when the walk
// leaves it. What vanishes meanwhile by another hand counts as removed.
#include "Foundation/Linux/TreeRemoval.h"

#include "Foundation/DescriptorBudget.h"
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/POSIX/FolderChain.h"
#include "Foundation/POSIX/Processors.h"
#include "Foundation/POSIX/SharedWork.h"
#include "Foundation/Progress.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

// How often a name may turn from folder to file and back, and how often a
// folder may be found filled again after it was emptied, before the removal
// gives up: somebody is working against it.
constexpr unsigned patience = 16;

// Folders that are met before threads are started.
constexpr unsigned foldersWithoutCrew = 4;
// Levels whose folders are shared out. For each the folder is held open until
// what was shared out of it is gone.
constexpr std::size_t sharedLevels = 8;

bool isNoFolder(const StepOutcome &outcome) {
  return outcome.errnum() == ENOTDIR || outcome.errnum() == ELOOP;
}
bool isFilled(const StepOutcome &outcome) {
  return outcome.errnum() == ENOTEMPTY || outcome.errnum() == EEXIST;
}

StepOutcome removeFolder(int parent, const char *name) {
  return {TreeStep::Remove, ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno};
}

// What the walks of one removal tell each other.
class Outcome {
public:
  bool isFailed() const { return failed_.load(std::memory_order_relaxed); }

  // The first failure counts.
  void fail(TreeFailure failure) {
    std::lock_guard lock(mutex_);
    if (!failure_)
      failure_ = std::move(failure);
    failed_.store(true, std::memory_order_relaxed);
  }
  TreeResult result() {
    std::lock_guard lock(mutex_);
    return failure_;
  }

private:
  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  TreeResult failure_;
};

// Told of the folders that a walk meets, to have others remove them.
class FolderSharer {
public:
  virtual ~FolderSharer() = default;
  // True when a folder in the walk's lowest one is somebody else's from now on.
  virtual bool share(const FolderChain &stack, const char *name) = 0;
  // Returns when all that was shared out of the folder at this depth is dealt
  // with.
  virtual void finish(std::size_t depth) = 0;
};

// Where one walk begins.
struct RemovalRoot {
  int parent; // the folder that holds it
  const std::string &name;
  const std::string &path; // for messages
};

class TreeRemover {
public:
  // The sharer may be null. The place is that of the thread that runs.
  TreeRemover(const RemovalRoot &root, ItemEraser &eraser, Outcome &outcome, HelperPlace &place,
              FolderSharer *sharer)
      : root_(root), eraser_(eraser), outcome_(outcome), place_(place), sharer_(sharer) {}

  // Ends early, without a failure of its own, when another walk has failed.
  // The type is what the root was listed as.
  TreeResult run(unsigned char type) {
    if (StepOutcome outcome = eraseOrEnter(root_.name.c_str(), type); outcome.isFailed())
      return failureAtRoot(outcome);
    while (!chain_.empty() && !outcome_.isFailed()) {
      place_.begin();
      TreeResult result = removeNext();
      place_.end();
      if (result)
        return result;
    }
    return {};
  }

private:
  int parent() const { return chain_.empty() ? root_.parent : chain_.folder(); }

  TreeResult removeNext() {
    StepOutcome outcome;
    if (const FolderEntry *entry = chain_.next(outcome))
      return removeEntry(*entry);
    return outcome.isFailed() ? failure(outcome, "") : finishFolder();
  }

  TreeResult removeEntry(const FolderEntry &entry) {
    if (sharer_ && entry.type == DT_DIR && sharer_->share(chain_, entry.name))
      return {};
    if (progress_.wantsPath())
      progress_.setPath(chain_.pathOf(root_.path, entry.name));
    std::size_t depth = chain_.depth();
    StepOutcome outcome = eraseOrEnter(entry.name, entry.type);
    if (outcome.isDone() || outcome.isMissing())
      return {};
    // On its way down the walk may give up the buffer that holds the name.
    return failure(outcome, chain_.depth() > depth ? "" : entry.name);
  }

  StepOutcome enter(const char *name) {
    StepOutcome outcome = chain_.empty() ? chain_.openRoot(root_.parent, name) : chain_.enter(name);
    return outcome.isDone() ? eraser_.admit(chain_.folder()) : outcome;
  }

  // A name that was a folder's can be another item's by now, and the reverse.
  StepOutcome eraseOrEnter(const char *name, unsigned char type) {
    if (progress_.isCancelled())
      return {TreeStep::Cancel, ECANCELED};
    StepOutcome outcome(TreeStep::Remove, EISDIR);
    for (unsigned attempt = 0; attempt < patience; ++attempt) {
      if (type != DT_DIR)
        outcome = eraser_.erase(parent(), name, type);
      if (!outcome.isFolder())
        return outcome;
      outcome = enter(name);
      if (!isNoFolder(outcome))
        return outcome;
      type = DT_UNKNOWN;
    }
    return outcome;
  }

  // Leaves the folder that was read to its end and removes it.
  TreeResult finishFolder() {
    if (sharer_)
      sharer_->finish(chain_.depth());
    if (outcome_.isFailed())
      return {};
    if (progress_.isCancelled())
      return failure({TreeStep::Cancel, ECANCELED}, "");
    std::string name = chain_.folderName();
    unsigned revisits = chain_.revisits();
    if (StepOutcome outcome = chain_.leave(); outcome.isFailed())
      return failure(outcome, "");
    StepOutcome outcome = removeFolder(parent(), name.c_str());
    if (outcome.isDone())
      eraser_.countFolder();
    if (isFilled(outcome) && revisits < patience)
      return enterAgain(name, revisits + 1);
    if (isNoFolder(outcome))
      outcome = eraser_.erase(parent(), name.c_str(), DT_UNKNOWN);
    return resultAt(name, outcome);
  }

  // Somebody has put something into the folder since it was read.
  TreeResult enterAgain(const std::string &name, unsigned revisits) {
    StepOutcome outcome = enter(name.c_str());
    if (outcome.isDone()) {
      chain_.revisits() = revisits;
      return {};
    }
    if (isNoFolder(outcome))
      outcome = eraser_.erase(parent(), name.c_str(), DT_UNKNOWN);
    return resultAt(name, outcome);
  }

  TreeResult resultAt(const std::string &name, const StepOutcome &outcome) const {
    if (outcome.isDone() || outcome.isMissing())
      return {};
    return chain_.empty() ? failureAtRoot(outcome) : failure(outcome, name);
  }

  TreeResult failureAtRoot(const StepOutcome &outcome) const {
    return TreeFailure{outcome, TreeItem::Asked, root_.path};
  }
  TreeResult failure(const StepOutcome &outcome, const std::string &name) const {
    return TreeFailure{outcome, TreeItem::Inner, chain_.pathOf(root_.path, name)};
  }

  const RemovalRoot root_;
  ItemEraser &eraser_;
  Outcome &outcome_;
  HelperPlace &place_;
  FolderSharer *sharer_;
  Progress &progress_ = Progress::current();
  FolderChain chain_{{.mountPoints = MountPoints::Refuse, .order = EntryOrder::ByInode}};
};

// Removes a tree by one walk from the root, which shares folders out to a crew,
// each to be removed by a walk of its own.
class SharedRemoval final : public FolderSharer {
public:
  SharedRemoval(const ItemLocation &root, const std::string &path, ItemEraser &eraser)
      : root_{root.parent.get(), root.name, path}, eraser_(eraser),
        work_(Processors::shared().usable()) {}

  TreeResult run() {
    TreeResult own = TreeRemover(root_, eraser_, outcome_, work_.own(), this).run(DT_UNKNOWN);
    if (own)
      outcome_.fail(std::move(*own));
    return outcome_.result();
  }

  bool share(const FolderChain &stack, const char *name) override {
    const std::size_t depth = stack.depth();
    if (depth > sharedLevels || ++folders_ <= foldersWithoutCrew || !mayHold() || !work_.hasRoom())
      return false;
    std::shared_ptr<Folder> &folder = shared_[depth - 1];
    if (!folder) {
      // The walk closes its own descriptor when it goes down far.
      Descriptor copy(::fcntl(stack.folder(), F_DUPFD_CLOEXEC, 0));
      if (!copy)
        return false;
      folder = std::make_shared<Folder>(std::move(copy), stack.pathOf(root_.path, ""));
    }
    return work_.offer(folder, [this, folder = folder.get(), name = std::string(name)](
                                   HelperPlace &place) { removeChild(*folder, name, place); });
  }

  void finish(std::size_t depth) override {
    if (depth > sharedLevels || !shared_[depth - 1])
      return;
    work_.finish(*shared_[depth - 1]);
    // Another folder can have this place when the walk comes down here again.
    shared_[depth - 1].reset();
  }

private:
  // A folder out of which others were shared.
  struct Folder final : SharedWork::Portion {
    Folder(Descriptor open, std::string itsPath)
        : descriptor(std::move(open)), path(std::move(itsPath)) {}
    Descriptor descriptor;
    std::string path;
  };

  // Whether there are descriptors for the walks of the crew.
  bool mayHold() {
    if (!std::exchange(hasAsked_, true))
      descriptors_ = DescriptorBudget::ofWalks().takeSpare(DescriptorBudget::sharesForHelpers);
    return static_cast<bool>(descriptors_);
  }

  // Runs on any thread of the crew.
  void removeChild(const Folder &folder, const std::string &name, HelperPlace &place) {
    if (outcome_.isFailed())
      return;
    try {
      std::string path = folder.path + "/" + name;
      RemovalRoot root{folder.descriptor.get(), name, path};
      TreeResult failure = TreeRemover(root, eraser_, outcome_, place, nullptr).run(DT_DIR);
      // A child that is gone is not the item that was asked about.
      if (failure && !failure->isGone()) {
        failure->item = TreeItem::Inner;
        outcome_.fail(std::move(*failure));
      }
    } catch (const std::bad_alloc &) {
      outcome_.fail({{TreeStep::Open, ENOMEM}, TreeItem::Inner, std::string()});
    }
  }

  const RemovalRoot root_;
  ItemEraser &eraser_;
  Outcome outcome_;
  unsigned folders_ = 0;
  bool hasAsked_ = false;
  DescriptorBudget::Share descriptors_;
  std::array<std::shared_ptr<Folder>, sharedLevels> shared_; // by depth
  SharedWork work_; // last, so that its threads end before all else
};

} // namespace

StepOutcome unlinkItem(int folder, const char *name) {
  return {TreeStep::Remove, ::unlinkat(folder, name, 0) == 0 ? 0 : errno};
}

void ItemEraser::countFolder() {
  Progress::current().countItem(0);
}

StepOutcome PlainEraser::erase(int folder, const char *name, unsigned char) {
  StepOutcome outcome = unlinkItem(folder, name);
  if (outcome.isDone())
    Progress::current().countItem(0);
  return outcome;
}

TreeResult removeTree(const std::string &path, ItemEraser &eraser, Recursion recursion) {
  ItemLocation location;
  if (int error = locateItem(path, location))
    return TreeFailure{{TreeStep::Locate, error}, TreeItem::Asked, path};
  return removeTree(location, path, eraser, recursion);
}

TreeResult removeTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser,
                      Recursion recursion) {
  if (recursion == Recursion::WholeTree)
    return SharedRemoval(location, path, eraser).run();
  StepOutcome outcome = eraser.erase(location.parent.get(), location.name.c_str(), DT_UNKNOWN);
  if (outcome.isFolder())
    outcome = removeFolder(location.parent.get(), location.name.c_str());
  if (outcome.isDone())
    return {};
  return TreeFailure{outcome, TreeItem::Asked, path};
}

TreeResult removeTree(const std::string &path) {
  PlainEraser eraser;
  return removeTree(path, eraser, Recursion::WholeTree);
}

} // namespace NS
