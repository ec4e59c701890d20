// Folders under numbered names: each new one is looked for at all of them, and
// what is met there without an owner is removed.
#include "Foundation/Linux/Staging.h"

#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/TreeRemoval.h"
#include "Foundation/POSIX/TemporaryNames.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr const char *prefix = ".keepwell-copy-";
// Beyond the numbered names, for more copies at once than anybody makes.
constexpr unsigned randomNames = 16;

Descriptor openFolder(int parent, const char *name) {
  return Descriptor(
      ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// By descriptors alone: whoever may rename within the destination cannot have
// another folder removed instead.
void removeStaged(int destination, const std::string &name, const Descriptor &folder) {
  ItemLocation item{Descriptor(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0)), Staging::itemName};
  PlainEraser eraser;
  if (item.parent)
    static_cast<void>(removeTree(item, name, eraser, Recursion::WholeTree));
  static_cast<void>(::unlinkat(destination, name.c_str(), AT_REMOVEDIR));
}

void removeLeftover(int destination, const std::string &name) {
  Descriptor folder = openFolder(destination, name.c_str());
  if (folder && takeOver(destination, name, folder.get(), ::geteuid()) == 0)
    removeStaged(destination, name, folder);
}

} // namespace

Staging::~Staging() {
  if (!folder_)
    return;
  try {
    removeStaged(destination_.get(), name_, folder_);
  } catch (const std::bad_alloc &) { // it stays for whoever works here next
  }
}

int Staging::open(int destination) {
  destination_ = Descriptor(::fcntl(destination, F_DUPFD_CLOEXEC, 0));
  if (!destination_)
    return errno;
  int error = EEXIST;
  for (unsigned slot = 0; slot < temporarySlots; ++slot) {
    std::string name = temporaryName(prefix, slot);
    removeLeftover(destination, name);
    if (error == EEXIST)
      error = make(name);
  }
  for (unsigned attempt = 0; attempt < randomNames && error == EEXIST; ++attempt)
    error = make(temporaryName(prefix, temporarySlots));
  return error;
}

// EEXIST when the name is not to be had.
int Staging::make(const std::string &name) {
  if (::mkdirat(destination_.get(), name.c_str(), S_IRWXU) != 0)
    return errno;
  Descriptor folder = openFolder(destination_.get(), name.c_str());
  if (!folder) {
    int error = errno;
    if (error == ENOENT) // taken for a leftover already
      return EEXIST;
    static_cast<void>(::unlinkat(destination_.get(), name.c_str(), AT_REMOVEDIR));
    return error;
  }
  // Somebody who looked for leftovers may have been faster. On a volume that
  // keeps no locks nobody takes any.
  int error = takeOver(destination_.get(), name, folder.get(), ::geteuid());
  if (error == EWOULDBLOCK || error == ESTALE)
    return EEXIST;
  folder_ = std::move(folder);
  name_ = name;
  return 0;
}

} // namespace NS
