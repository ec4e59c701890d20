// Removal from the leaves up: files as they are met, a folder when the walk
// leaves it. What vanishes meanwhile by another hand counts as removed. Volumes
// answer slowly rather than being busy, so that walks side by side pay.
#include "Foundation/Linux/TreeRemoval.h"

#include "Foundation/Linux/Crew.h"
#include "Foundation/Linux/FolderStack.h"
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Progress.h"

#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <unistd.h>

namespace NS {
namespace {

// How often a name may turn from folder to file and back, and how often a
// folder may be found filled again after it was emptied, before the removal
// gives up: somebody is working against it.
constexpr unsigned patience = 16;

// Threads besides the caller's. Each holds a window of descriptors of its own.
constexpr std::size_t crewMembers = 2;
// Folders directly within the root that are met before threads are started.
constexpr unsigned foldersWithoutCrew = 4;

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

// Told of a folder directly within the root: true when somebody else removes it.
class FolderTaker {
public:
  virtual ~FolderTaker() = default;
  virtual bool take(int root, const char *name) = 0;
  // Returns when all that was taken is dealt with.
  virtual void finish() = 0;
};

class TreeRemover {
public:
  // The taker may be null.
  TreeRemover(const ItemLocation &root, const std::string &path, ItemEraser &eraser,
              Outcome &outcome, FolderTaker *taker)
      : root_(root), path_(path), eraser_(eraser), outcome_(outcome), taker_(taker) {}

  // Ends early, without a failure of its own, when another walk has failed.
  TreeResult run() {
    if (StepOutcome outcome = eraseOrEnter(root_.name.c_str(), DT_UNKNOWN); outcome.isFailed())
      return failureAtRoot(outcome);
    while (!stack_.empty() && !outcome_.isFailed()) {
      StepOutcome outcome;
      const FolderEntry *entry = stack_.next(outcome);
      TreeResult result;
      if (entry)
        result = removeEntry(*entry);
      else
        result = outcome.isFailed() ? failure(outcome, "") : finishFolder();
      if (result)
        return result;
    }
    return {};
  }

private:
  int parent() const { return stack_.empty() ? root_.parent.get() : stack_.folder(); }

  TreeResult removeEntry(const FolderEntry &entry) {
    if (isTaken(entry))
      return {};
    if (progress_.wantsPath())
      progress_.setPath(stack_.pathOf(path_, entry.name));
    std::size_t depth = stack_.depth();
    StepOutcome outcome = eraseOrEnter(entry.name, entry.type);
    if (outcome.isDone() || outcome.isMissing())
      return {};
    // On its way down the walk may give up the buffer that holds the name.
    return failure(outcome, stack_.depth() > depth ? "" : entry.name);
  }

  bool isTaken(const FolderEntry &entry) {
    return taker_ && stack_.depth() == 1 && entry.type == DT_DIR &&
           taker_->take(stack_.folder(), entry.name);
  }

  StepOutcome enter(const char *name) {
    StepOutcome outcome =
        stack_.empty() ? stack_.openRoot(root_.parent.get(), name) : stack_.enter(name);
    return outcome.isDone() ? eraser_.admit(stack_.folder()) : outcome;
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
    if (taker_ && stack_.depth() == 1) {
      taker_->finish();
      if (outcome_.isFailed())
        return {};
    }
    if (progress_.isCancelled())
      return failure({TreeStep::Cancel, ECANCELED}, "");
    std::string name = stack_.folderName();
    unsigned revisits = stack_.revisits();
    if (StepOutcome outcome = stack_.leave(); outcome.isFailed())
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
      stack_.revisits() = revisits;
      return {};
    }
    if (isNoFolder(outcome))
      outcome = eraser_.erase(parent(), name.c_str(), DT_UNKNOWN);
    return resultAt(name, outcome);
  }

  TreeResult resultAt(const std::string &name, const StepOutcome &outcome) const {
    if (outcome.isDone() || outcome.isMissing())
      return {};
    return stack_.empty() ? failureAtRoot(outcome) : failure(outcome, name);
  }

  TreeResult failureAtRoot(const StepOutcome &outcome) const {
    return TreeFailure{outcome, TreeItem::Asked, path_};
  }
  TreeResult failure(const StepOutcome &outcome, const std::string &name) const {
    return TreeFailure{outcome, TreeItem::Inner, stack_.pathOf(path_, name)};
  }

  const ItemLocation &root_;
  const std::string &path_;
  ItemEraser &eraser_;
  Outcome &outcome_;
  FolderTaker *taker_;
  Progress &progress_ = Progress::current();
  FolderStack stack_{MountPoints::Refuse, EntryOrder::ByInode};
};

// Has the root's folders removed by a crew, each folder by a walk of its own.
class SharedRemoval final : public FolderTaker {
public:
  SharedRemoval(const ItemLocation &root, const std::string &path, ItemEraser &eraser)
      : root_(root), path_(path), eraser_(eraser),
        crew_(crewMembers, [this](const std::string &name) { removeChild(name); }) {}

  TreeResult run() {
    TreeResult own = TreeRemover(root_, path_, eraser_, outcome_, this).run();
    if (own)
      outcome_.fail(std::move(*own));
    return outcome_.result();
  }

  bool take(int root, const char *name) override {
    if (++folders_ <= foldersWithoutCrew)
      return false;
    // The walk closes its own descriptor of the root when it goes down far.
    if (!folder_)
      folder_ = Descriptor(::fcntl(root, F_DUPFD_CLOEXEC, 0));
    return folder_ && crew_.offer(name);
  }

  void finish() override {
    crew_.finish();
    // Another folder can bear the root's name when it is gone through again.
    folder_.reset();
  }

private:
  // Runs on any thread of the crew.
  void removeChild(const std::string &name) {
    if (outcome_.isFailed())
      return;
    try {
      TreeResult failure = removeFolderOfRoot(name);
      // A child that is gone is not the item that was asked about.
      if (failure && !failure->isGone()) {
        failure->item = TreeItem::Inner;
        outcome_.fail(std::move(*failure));
      }
    } catch (const std::bad_alloc &) {
      outcome_.fail({{TreeStep::Open, ENOMEM}, TreeItem::Inner, std::string()});
    }
  }

  TreeResult removeFolderOfRoot(const std::string &name) {
    std::string path = path_ + "/" + name;
    ItemLocation child{Descriptor(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0)), name};
    if (!child.parent)
      return TreeFailure{{TreeStep::Identify, errno}, TreeItem::Asked, std::move(path)};
    return TreeRemover(child, path, eraser_, outcome_, nullptr).run();
  }

  const ItemLocation &root_;
  const std::string &path_;
  ItemEraser &eraser_;
  Outcome outcome_;
  unsigned folders_ = 0;
  Descriptor folder_;
  Crew crew_; // last, so that its threads end before all else
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
