// Builds copies in folders under numbered names.
//
// A move to another volume builds its copy in a folder of its own beside the
// destination. A killed process leaves that folder behind. The names have numbers
// from a small range, so that the next move can look at each of them instead of
// searching the destination's folder. The owner of a staging folder holds a lock
// on it, and the kernel releases the lock with the process. A folder whose lock
// is free is a leftover, and the next move removes it.
//
// Two processes can meet between the making of a folder and its lock: the second
// may take the new folder for a leftover. So the maker checks after locking that
// the name still means its folder, and else tries the next name. When all
// numbered names are in use it takes a random one, whose leftover would stay.
//
// Nothing can be renamed out of an append-only folder. There the folder is built
// in the next folder above on the same volume.
#include "Foundation/Trees/POSIX/Staging.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Files/POSIX/TemporaryNames.h"
#include "Foundation/Trees/Internal/TreeRemoval.h"
#include "Foundation/Trees/POSIX/CopiedItems.h"
#include "Foundation/Trees/POSIX/ItemCopy.h"

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
    static_cast<void>(eraseTree(item, name, eraser));
}

void removeStaged(int parent, const std::string &name, const Descriptor &folder) {
  removeWithin(folder, Staging::itemName);
  removeWithin(folder, linksName);
  removeWithin(folder, CopiedItems::fileName);
  if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
    Log("The unfinished copy %@ could not be removed (error %d)", name, errno);
}

void removeLeftover(int parent, const std::string &name) {
  Descriptor folder = openFolder(parent, name.c_str());
  if (folder && takeOver(parent, name, folder.get(), ::geteuid()) == 0)
    removeStaged(parent, name, folder);
}

// Opens the nearest folder of the destination, or above it, in which items can
// be made and removed.
StepOutcome openParent(int destination, Descriptor &parent) {
  parent = Descriptor(::fcntl(destination, F_DUPFD_CLOEXEC, 0));
  for (;;) {
    ItemStatus status;
    if (!parent)
      return {TreeStep::Check, errno, TreeSide::Copy};
    if (StepOutcome outcome = readStatus(parent.get(), "", status); outcome.isFailed())
      return {TreeStep::Check, outcome.errnum(), TreeSide::Copy};
    if (!status.isLocked())
      return {};
    // A folder above a mount point is on another volume; that above the root
    // is the root.
    if (status.isImmutable() || status.isMountPoint)
      return {TreeStep::Check, EPERM, TreeSide::Copy};
    parent = Descriptor(::openat(parent.get(), "..", itemcalls::placeFlags));
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

// EEXIST when the name is taken.
int Staging::make(const std::string &name) {
  if (::mkdirat(parent_.get(), name.c_str(), S_IRWXU) != 0)
    return errno;
  Descriptor folder = openFolder(parent_.get(), name.c_str());
  if (!folder) {
    int error = errno;
    if (error == ENOENT) // another process took it for a leftover
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
