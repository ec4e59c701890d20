// Removes from the leaves up: files as the walk meets them, a folder when the
// walk leaves it. Items that others remove meanwhile count as removed.
//
// The type of an entry is only a hint. The walk enters a name that was listed as a
// folder's and gives any other to the eraser; when the name means the other kind
// by now, it tries the other way. A folder that others have filled again when the
// walk leaves it is entered once more. Both are bounded, since a process may work
// against the removal. The eraser does the work on each item: it unlinks, or
// overwrites first, or refuses items that were not copied. The first walk shares
// folders out to helpers (FolderSharing.h), each of which runs a walk of its own.
#include "Foundation/Trees/Internal/TreeRemoval.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Files/POSIX/ItemCalls.h"
#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Walking/POSIX/FolderChain.h"
#include "Foundation/Walking/POSIX/FolderSharing.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

// The number of times that a name may turn from folder to file and back, and
// that an emptied folder may be found filled again, before the removal gives
// up: another process is working against it.
constexpr unsigned patience = 16;

bool isNoFolder(const StepOutcome &outcome) {
  return outcome.errnum() == ENOTDIR || outcome.errnum() == ELOOP;
}
bool isFilled(const StepOutcome &outcome) {
  return outcome.errnum() == ENOTEMPTY || outcome.errnum() == EEXIST;
}

StepOutcome removeFolder(int parent, const char *name) {
  return {TreeStep::Remove, ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno};
}

// The start of one walk.
struct RemovalRoot {
  int parent; // the folder that holds it
  const std::string &name;
  const std::string &path; // for messages
};

class TreeRemover {
public:
  // The place is that of the running thread. The first walk shares folders out.
  TreeRemover(const RemovalRoot &root, ItemEraser &eraser, FolderSharing &sharing,
              HelperPlace &place, bool isFirst)
      : root_(root), eraser_(eraser), sharing_(sharing), place_(place), isFirst_(isFirst) {}

  // The root was a folder a moment ago.
  TreeResult run() {
    if (StepOutcome outcome = eraseOrEnter(root_.name.c_str(), DT_DIR); outcome.isFailed())
      return failureAtRoot(outcome);
    while (!chain_.empty() && !sharing_.isFailed()) {
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
    if (isFirst_ && entry.type == DT_DIR && share(entry.name))
      return {};
    if (progress_.wantsPath())
      progress_.setPath(chain_.pathOf(root_.path, entry.name));
    std::size_t depth = chain_.depth();
    StepOutcome outcome = eraseOrEnter(entry.name, entry.type);
    if (outcome.isDone() || outcome.isMissing())
      return {};
    // On its way down the walk may release the buffer that holds the name.
    return failure(outcome, chain_.depth() > depth ? "" : entry.name);
  }

  bool share(const char *name) {
    return sharing_.share(chain_, nullptr, root_.path,
                          [&eraser = eraser_, &sharing = sharing_, name = std::string(name)](
                              const SharedFolder &above, HelperPlace &place) {
                            std::string path = above.path + "/" + name;
                            RemovalRoot root{above.original.get(), name, path};
                            return TreeRemover(root, eraser, sharing, place, false).run();
                          });
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

  // Leaves the folder after its last entry and removes it.
  TreeResult finishFolder() {
    if (isFirst_)
      sharing_.finish(chain_.depth());
    if (sharing_.isFailed())
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
    if ((isFilled(outcome) || isNoFolder(outcome)) && revisits < patience)
      return removeAgain(name, revisits + 1);
    return resultAt(name, outcome);
  }

  // Another process has put an item into the folder since it was read, or has
  // given its name to another item.
  TreeResult removeAgain(const std::string &name, unsigned revisits) {
    std::size_t depth = chain_.depth();
    StepOutcome outcome = eraseOrEnter(name.c_str(), DT_DIR);
    if (chain_.depth() == depth)
      return resultAt(name, outcome);
    chain_.revisits() = revisits;
    return outcome.isDone() ? TreeResult() : failure(outcome, "");
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
  FolderSharing &sharing_;
  HelperPlace &place_;
  const bool isFirst_;
  Progress &progress_ = Progress::current();
  FolderChain chain_{{.mountPoints = MountPoints::Refuse, .order = EntryOrder::ByInode}};
};

TreeResult removeWhole(const RemovalRoot &root, ItemEraser &eraser) {
  FolderSharing sharing;
  if (TreeResult failure = TreeRemover(root, eraser, sharing, sharing.own(), true).run())
    sharing.fail(std::move(*failure));
  return sharing.result();
}

// Only a folder needs a walk and threads.
TreeResult removeRoot(const RemovalRoot &root, ItemEraser &eraser, Recursion recursion) {
  StepOutcome outcome(TreeStep::Cancel, ECANCELED);
  if (!Progress::current().isCancelled())
    outcome = eraser.erase(root.parent, root.name.c_str(), DT_UNKNOWN);
  if (outcome.isFolder() && recursion == Recursion::WholeTree)
    return removeWhole(root, eraser);
  if (outcome.isFolder())
    outcome = removeFolder(root.parent, root.name.c_str());
  if (outcome.isDone())
    return {};
  return TreeFailure{outcome, TreeItem::Asked, root.path};
}

} // namespace

StepOutcome unlinkItem(int folder, const char *name) {
  return {TreeStep::Remove, itemcalls::unlink(folder, name)};
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

TreeResult eraseItemAtPath(const std::string &path, ItemEraser &eraser, Recursion recursion) {
  ItemLocation location;
  if (int error = locateItem(path, location))
    return TreeFailure{{TreeStep::Locate, error}, TreeItem::Asked, path};
  return removeRoot({location.parent.get(), location.name, path}, eraser, recursion);
}

TreeResult eraseTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser) {
  return removeRoot({location.parent.get(), location.name, path}, eraser, Recursion::WholeTree);
}

TreeResult removeTree(const std::string &path) {
  PlainEraser eraser;
  return eraseItemAtPath(path, eraser, Recursion::WholeTree);
}

} // namespace NS
