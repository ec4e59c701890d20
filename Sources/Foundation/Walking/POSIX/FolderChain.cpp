// Moves down and up the chain, and manages its descriptors.
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

StepOutcome identify(const Descriptor &folder, FolderIdentity &identity) {
  return {TreeStep::Identify, foldercalls::identify(folder.get(), identity)};
}

} // namespace

StepOutcome FolderChain::openRoot(int parent, const char *name) {
  Descriptor folder = openWithin(parent, name);
  if (!folder)
    return {TreeStep::Open, errno};
  if (rules_.mountPoints == MountPoints::Refuse) {
    FolderIdentity above, identity;
    for (const auto &[item, result] : {std::pair(parent, &above), {folder.get(), &identity}})
      if (int error = foldercalls::identify(item, *result))
        return {TreeStep::Identify, error};
    if (above.mount != identity.mount)
      return {TreeStep::Check, EBUSY};
  }
  return push(std::move(folder), name);
}

StepOutcome FolderChain::openRoot(Descriptor folder) {
  return push(std::move(folder), "");
}

StepOutcome FolderChain::enter(const char *name) {
  Descriptor folder = openWithin(links_.back().descriptor.get(), name);
  return folder ? push(std::move(folder), name) : StepOutcome{TreeStep::Open, errno};
}

StepOutcome FolderChain::push(Descriptor folder, const char *name) {
  FolderIdentity identity;
  if (StepOutcome outcome = identify(folder, identity); outcome.isFailed())
    return outcome;
  if (!links_.empty())
    if (int error = checkMount(identity))
      return {TreeStep::Check, error};
  append(name, identity);
  links_.back().isIdentified = true;
  setOpen(links_.size() - 1, std::move(folder));
  return {};
}

// A folder has one parent, so only a mount can lead back to a folder of the
// chain. So this searches the chain only at a mount.
int FolderChain::checkMount(const FolderIdentity &folder) const {
  if (links_.back().identity.mount == folder.mount || rules_.mountPoints == MountPoints::Ignore)
    return 0;
  if (rules_.mountPoints == MountPoints::Refuse)
    return EBUSY;
  bool isWithin = std::any_of(links_.begin(), links_.end(),
                              [&](const Link &link) { return link.identity.id == folder.id; });
  return isWithin ? EDEADLK : 0;
}

// Copies the name first: it may be in the records of the folder above, which this
// may forget.
void FolderChain::append(const char *name, const FolderIdentity &identity) {
  Link link;
  link.identity = identity;
  link.name = names_.size();
  names_.append(name, std::strlen(name) + 1);
  if (!links_.empty()) {
    forgetManyUnread(links_.back());
    link.base = link.cursor = link.end = links_.back().end;
  }
  links_.push_back(std::move(link));
}

void FolderChain::add(const char *name, const FolderID &id) {
  append(name, {id, 0});
}

StepOutcome FolderChain::open() {
  std::size_t index = links_.size() - 1;
  int parent = AT_FDCWD;
  if (index > 0) {
    if (!links_[index - 1].descriptor)
      if (int error = reopenAt(index - 1))
        return {TreeStep::Open, error};
    parent = links_[index - 1].descriptor.get();
  }
  Descriptor folder = openWithin(parent, nameOf(links_[index]));
  if (!folder)
    return {TreeStep::Open, errno};
  setOpen(index, std::move(folder));
  return {};
}

StepOutcome FolderChain::reopen() {
  return {TreeStep::GoUp, reopenAt(links_.size() - 1)};
}

// Looks once for all folders that the names no longer lead to: a walk leaves them
// one by one, and to go down from the root each time would take the square of the
// depth.
int FolderChain::reopenAt(std::size_t index) {
  if (index >= firstLost_)
    return ENOENT;
  std::size_t reached = index;
  Descriptor folder = openByNames(reached);
  if (!folder)
    return errno;
  if (reached != index) {
    firstLost_ = reached + 1;
    return ENOENT;
  }
  setOpen(index, std::move(folder));
  return 0;
}

Descriptor FolderChain::openWithin(int folder, const char *name) {
  for (;;) {
    Descriptor opened(::openat(folder, name, folderFlags));
    if (opened || !isExhaustion(errno))
      return opened;
    int errnum = errno;
    if (!(relieve_ && relieve_()) && !closeUppermost() && !patience_.waitOut(errnum)) {
      errno = errnum;
      return {};
    }
  }
}

void FolderChain::setOpen(std::size_t index, Descriptor folder) {
  links_[index].descriptor = std::move(folder);
  if (isKept(index))
    return;
  lowestOpen_ = std::min(lowestOpen_, index);
  ++open_;
  while (open_ > rules_.window && closeUppermost()) {
  }
}

// Closes all but the two lowest, which a move down or up needs.
bool FolderChain::closeUppermost() {
  for (; lowestOpen_ + 2 < links_.size(); ++lowestOpen_) {
    if (isKept(lowestOpen_) || !links_[lowestOpen_].descriptor)
      continue;
    close(links_[lowestOpen_]);
    return true;
  }
  return false;
}

// Reads the identity first: without it the chain could not recognise the folder
// again, and would count it as lost.
void FolderChain::close(Link &link) {
  if (!link.isIdentified && identify(link.descriptor, link.identity).isFailed())
    link.identity = {};
  link.isIdentified = true;
  link.descriptor.reset();
  link.isElsewhere = true;
  --open_;
}

void FolderChain::drop() {
  Link &link = links_.back();
  endLong(link);
  if (link.descriptor && !isKept(links_.size() - 1))
    --open_;
  names_.resize(link.name);
  links_.pop_back();
  lowestOpen_ = std::min(lowestOpen_, links_.size());
  if (links_.size() <= firstLost_)
    firstLost_ = none;
}

StepOutcome FolderChain::leave() {
  if (isOpen() && !isKept(links_.size() - 1))
    --open_;
  Descriptor below = std::move(links_.back().descriptor);
  drop();
  if (links_.empty() || links_.back().descriptor)
    return {};
  return {TreeStep::GoUp, reopenThrough(below)};
}

int FolderChain::reopenThrough(const Descriptor &below) {
  if (!below)
    return ESTALE;
  Descriptor folder = openWithin(below.get(), "..");
  if (!folder)
    return errno;
  FolderIdentity identity;
  if (StepOutcome outcome = identify(folder, identity); outcome.isFailed())
    return outcome.errnum();
  if (!links_.back().identity.matches(identity))
    return ESTALE;
  setOpen(links_.size() - 1, std::move(folder));
  return 0;
}

// Opens the folder at the index by the names from the root. When they do not lead
// there, opens the lowest folder of the chain that they lead to, and sets the
// index to it. Empty, with errno set, when the root cannot be opened, or when
// descriptors or memory have run out.
Descriptor FolderChain::openByNames(std::size_t &index) {
  std::size_t wanted = index;
  Descriptor folder = openWithin(links_[0].descriptor.get(), ".");
  for (index = 0; folder && index < wanted; ++index) {
    Descriptor next = openWithin(folder.get(), nameOf(links_[index + 1]));
    FolderIdentity identity;
    if (!next && isExhaustion(errno))
      return {};
    if (!next || identify(next, identity).isFailed() ||
        !links_[index + 1].identity.matches(identity))
      break;
    folder = std::move(next);
  }
  return folder;
}

bool FolderChain::findAgain(const LossHandler &lost) {
  std::size_t reached = links_.size() - 1;
  Descriptor folder = openByNames(reached);
  std::string fate =
      folder ? "was moved" : "cannot be reached: " + std::generic_category().message(errno);
  std::size_t kept = folder ? reached + 1 : 0;
  while (links_.size() > kept + 1)
    drop();
  if (links_.size() > kept) {
    lost(pathBelowRoot(), fate);
    drop();
  }
  if (!folder)
    return false;
  if (!links_.back().descriptor)
    setOpen(reached, std::move(folder));
  return true;
}

void FolderChain::clear() {
  while (!links_.empty())
    drop();
}

std::string FolderChain::pathBelowRoot() const {
  std::string path;
  for (std::size_t index = 1; index < links_.size(); ++index) {
    if (index > 1)
      path += '/';
    path += nameOf(links_[index]);
  }
  return path;
}

std::string FolderChain::pathOf(const std::string &root, const std::string &name) const {
  std::string path = root;
  for (const std::string &part : {pathBelowRoot(), name})
    if (!part.empty())
      path += "/" + part;
  return path;
}

} // namespace NS
