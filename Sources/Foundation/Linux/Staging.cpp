// Folders under numbered names. To make a new one it looks at all of these
// names, and removes items there that have no owner.
#include "Foundation/Linux/Staging.h"

#include "Foundation/Linux/ItemCopy.h"
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/TreeRemoval.h"
#include "Foundation/Log.h"
#include "Foundation/POSIX/TemporaryNames.h"
#include "Foundation/Progress.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr const char *prefix = ".keepwell-copy-";
constexpr const char *linksName = "links";
// More names for when all numbered ones are in use.
constexpr unsigned randomNames = 16;

Descriptor openFolder(int parent, const char *name) {
  return Descriptor(
      ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// Works only by descriptors: a user who may rename within the folder's parent
// cannot have another folder removed instead.
void removeWithin(const Descriptor &folder, const char *name) {
  // The removal of a leftover is not part of the request, and must finish even
  // if that was cancelled.
  Progress unwatched;
  Progress::Scope scope(unwatched);
  ItemLocation item{Descriptor(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0)), name};
  PlainEraser eraser;
  if (item.parent)
    static_cast<void>(removeTree(item, name, eraser, Recursion::WholeTree));
}

void removeStaged(int parent, const std::string &name, const Descriptor &folder) {
  removeWithin(folder, Staging::itemName);
  removeWithin(folder, linksName);
  if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
    Log("The unfinished copy %@ could not be removed (error %d)", name, errno);
}

void removeLeftover(int parent, const std::string &name) {
  Descriptor folder = openFolder(parent, name.c_str());
  if (folder && takeOver(parent, name, folder.get(), ::geteuid()) == 0)
    removeStaged(parent, name, folder);
}

// Opens the folder in which something for the destination can be built and
// removed again.
StepOutcome openParent(int destination, Descriptor &parent) {
  parent = Descriptor(::fcntl(destination, F_DUPFD_CLOEXEC, 0));
  for (;;) {
    ItemStatus status;
    if (!parent)
      return {TreeStep::Check, errno, TreeSide::Copy};
    if (StepOutcome outcome = readStatus(parent.get(), "", status); outcome.isFailed())
      return {TreeStep::Check, outcome.errnum(), TreeSide::Copy};
    if (!status.isAppendOnly && !status.isImmutable)
      return {};
    // A folder above a mount point is on another volume; that above the root
    // is the root.
    if (status.isImmutable || status.isMountPoint)
      return {TreeStep::Check, EPERM, TreeSide::Copy};
    parent = Descriptor(::openat(parent.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
}

} // namespace

Staging::~Staging() {
  if (!folder_)
    return;
  try {
    removeStaged(parent_.get(), name_, folder_);
  } catch (const std::bad_alloc &) { // it stays for the next work in this folder
  }
}

StepOutcome Staging::open(int destination) {
  if (StepOutcome outcome = openParent(destination, parent_); outcome.isFailed())
    return outcome;
  int error = EEXIST;
  for (unsigned slot = 0; slot < temporarySlots; ++slot) {
    std::string name = temporaryName(prefix, slot);
    removeLeftover(parent_.get(), name);
    if (error == EEXIST)
      error = make(name);
  }
  for (unsigned attempt = 0; attempt < randomNames && error == EEXIST; ++attempt)
    error = make(temporaryName(prefix, temporarySlots));
  return {TreeStep::Write, error, TreeSide::Copy};
}

int Staging::links() {
  if (!links_ && ::mkdirat(folder_.get(), linksName, S_IRWXU) == 0)
    links_ = openFolder(folder_.get(), linksName);
  return links_.get();
}

void Staging::dropLinks() {
  if (links_)
    removeWithin(folder_, linksName);
  links_.reset();
}

// EEXIST when the name is not to be had.
int Staging::make(const std::string &name) {
  if (::mkdirat(parent_.get(), name.c_str(), S_IRWXU) != 0)
    return errno;
  Descriptor folder = openFolder(parent_.get(), name.c_str());
  if (!folder) {
    int error = errno;
    if (error == ENOENT) // taken for a leftover already
      return EEXIST;
    static_cast<void>(::unlinkat(parent_.get(), name.c_str(), AT_REMOVEDIR));
    return error;
  }
  // Another process that looked for leftovers may have been faster. On a volume
  // without locks there is no such process.
  int error = takeOver(parent_.get(), name, folder.get(), ::geteuid());
  if (error == EWOULDBLOCK || error == ESTALE)
    return EEXIST;
  folder_ = std::move(folder);
  name_ = name;
  return 0;
}

} // namespace NS
