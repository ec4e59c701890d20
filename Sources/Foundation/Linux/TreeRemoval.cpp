// Removal from the leaves up: files as they are met, a folder when the walk
// leaves it. What vanishes meanwhile by another hand counts as removed. Volumes
// answer slowly rather than being busy, so that walks side by side pay.
#include "Foundation/Linux/TreeRemoval.h"

#include "Foundation/Linux/Crew.h"
#include "Foundation/Linux/FolderStack.h"
#include "Foundation/Linux/ItemLocation.h"

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

bool isGone(int error) {
  return error == 0 || error == ENOENT;
}
bool isNoFolder(int error) {
  return error == ENOTDIR || error == ELOOP;
}
bool isFilled(int error) {
  return error == ENOTEMPTY || error == EEXIST;
}

int removeFolder(int parent, const char *name) {
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno;
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
    int error = eraseOrEnter(root_.name.c_str(), DT_UNKNOWN);
    if (error != 0)
      return TreeFailure{error, path_};
    while (!stack_.empty() && !outcome_.isFailed()) {
      const FolderEntry *entry = stack_.next(error);
      if (!entry && error != 0)
        return failure(error, "");
      if (!entry) {
        if (TreeResult result = finishFolder())
          return result;
      } else if (!isTaken(*entry)) {
        error = eraseOrEnter(entry->name, entry->type);
        if (!isGone(error))
          return failure(error, entry->name);
      }
    }
    return {};
  }

private:
  int parent() const { return stack_.empty() ? root_.parent.get() : stack_.folder(); }

  int enter(const char *name) {
    return stack_.empty() ? stack_.openRoot(root_.parent.get(), name) : stack_.enter(name);
  }

  bool isTaken(const FolderEntry &entry) {
    return taker_ && stack_.depth() == 1 && entry.type == DT_DIR &&
           taker_->take(stack_.folder(), entry.name);
  }

  // A name that was a folder's can be another item's by now, and the reverse.
  int eraseOrEnter(const char *name, unsigned char type) {
    int error = EISDIR;
    for (unsigned attempt = 0; attempt < patience; ++attempt) {
      if (type != DT_DIR)
        error = eraser_.erase(parent(), name, type);
      if (error != EISDIR)
        return error;
      error = enter(name);
      if (!isNoFolder(error))
        return error;
      type = DT_UNKNOWN;
    }
    return error;
  }

  // Leaves the folder that was read to its end and removes it.
  TreeResult finishFolder() {
    if (taker_ && stack_.depth() == 1) {
      taker_->finish();
      if (outcome_.isFailed())
        return {};
    }
    std::string name = stack_.folderName();
    unsigned revisits = stack_.revisits();
    if (int error = stack_.leave())
      return failure(error, "");
    int error = removeFolder(parent(), name.c_str());
    if (isFilled(error) && revisits < patience) {
      error = enter(name.c_str());
      if (error == 0) {
        stack_.revisits() = revisits + 1;
        return {};
      }
    }
    if (isNoFolder(error))
      error = eraser_.erase(parent(), name.c_str(), DT_UNKNOWN);
    if (isGone(error))
      return {};
    return stack_.empty() ? TreeFailure{error, path_} : failure(error, name);
  }

  TreeResult failure(int error, const std::string &name) const {
    std::string path = path_;
    for (const std::string &part : {stack_.pathBelowRoot(), name})
      if (!part.empty())
        path += "/" + part;
    return TreeFailure{error, std::move(path)};
  }

  const ItemLocation &root_;
  const std::string &path_;
  ItemEraser &eraser_;
  Outcome &outcome_;
  FolderTaker *taker_;
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
  void removeChild(const std::string &name) {
    if (outcome_.isFailed())
      return;
    try {
      std::string path = path_ + "/" + name;
      ItemLocation child{Descriptor(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0)), name};
      TreeResult failure = child.parent ? TreeRemover(child, path, eraser_, outcome_, nullptr).run()
                                        : TreeFailure{errno, path};
      if (failure && failure->errnum != ENOENT)
        outcome_.fail(std::move(*failure));
    } catch (const std::bad_alloc &) {
      outcome_.fail(TreeFailure{ENOMEM, std::string()});
    }
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

int PlainEraser::erase(int folder, const char *name, unsigned char) {
  return ::unlinkat(folder, name, 0) == 0 ? 0 : errno;
}

TreeResult removeTree(const std::string &path, ItemEraser &eraser, Recursion recursion) {
  ItemLocation location;
  if (int error = locateItem(path, location))
    return TreeFailure{error, path};
  return removeTree(location, path, eraser, recursion);
}

TreeResult removeTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser,
                      Recursion recursion) {
  if (recursion == Recursion::WholeTree)
    return SharedRemoval(location, path, eraser).run();
  int error = eraser.erase(location.parent.get(), location.name.c_str(), DT_UNKNOWN);
  if (error == EISDIR)
    error = removeFolder(location.parent.get(), location.name.c_str());
  return error == 0 ? TreeResult{} : TreeFailure{error, path};
}

TreeResult removeTree(const std::string &path) {
  PlainEraser eraser;
  return removeTree(path, eraser, Recursion::WholeTree);
}

} // namespace NS
