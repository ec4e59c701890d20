// Opening, reading and leaving folders relative to one another.
#include "Foundation/Linux/FolderStack.h"

#include "Foundation/POSIX/DirectoryRecords.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace NS {
namespace {

// A long part of a listing; what is left of it that no record might need.
constexpr std::size_t longListingSize = 4 * 1024 * 1024;
constexpr std::size_t recordRoom = 4 * 1024;

constexpr int openFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

} // namespace

StepOutcome FolderStack::identify(int folder, Identity &identity) {
  struct statx status;
  if (::statx(folder, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO | STATX_MNT_ID, &status) !=
      0)
    return {TreeStep::Identify, errno};
  identity.device = (static_cast<std::uint64_t>(status.stx_dev_major) << 32) | status.stx_dev_minor;
  identity.inode = status.stx_ino;
  bool numbered = (status.stx_mask & STATX_MNT_ID) != 0;
  identity.mount = numbered ? status.stx_mnt_id : identity.device;
  return {};
}

StepOutcome FolderStack::openRoot(int parent, const char *name) {
  Descriptor folder(::openat(parent, name, openFlags));
  if (!folder)
    return {TreeStep::Open, errno};
  Identity above, identity;
  for (const auto &[item, result] : {std::pair(parent, &above), {folder.get(), &identity}})
    if (StepOutcome outcome = identify(item, *result); outcome.isFailed())
      return outcome;
  if (mountPoints_ == MountPoints::Refuse && above.mount != identity.mount)
    return {TreeStep::Check, EBUSY};
  push(std::move(folder), identity, name);
  return {};
}

StepOutcome FolderStack::openRoot(Descriptor folder) {
  Identity identity;
  StepOutcome outcome = identify(folder.get(), identity);
  if (outcome.isDone())
    push(std::move(folder), identity, "");
  return outcome;
}

StepOutcome FolderStack::enter(const char *name) {
  const Frame &above = frames_.back();
  Descriptor folder(::openat(above.descriptor.get(), name, openFlags));
  if (!folder)
    return {TreeStep::Open, errno};
  Identity identity;
  if (StepOutcome outcome = identify(folder.get(), identity); outcome.isFailed())
    return outcome;
  if (int error = checkMount(above.identity, identity))
    return {TreeStep::Check, error};
  push(std::move(folder), identity, name);
  return {};
}

// A folder has one parent, so only a mount can lead back to a folder that the
// walk is in; the search upwards is spared everywhere else.
int FolderStack::checkMount(const Identity &above, const Identity &folder) const {
  if (above.mount == folder.mount)
    return 0;
  if (mountPoints_ == MountPoints::Refuse)
    return EBUSY;
  bool within = std::any_of(frames_.begin(), frames_.end(), [&](const Frame &frame) {
    return frame.identity.device == folder.device && frame.identity.inode == folder.inode;
  });
  return within ? EDEADLK : 0;
}

void FolderStack::push(Descriptor folder, const Identity &identity, const char *name) {
  Frame frame;
  frame.identity = identity;
  frame.name = names_.size();
  frame.descriptor = std::move(folder);
  // The name may stand in the buffer that is given up below.
  names_.append(name, std::strlen(name) + 1);
  frames_.push_back(std::move(frame));
  if (frames_.size() - lowestOpen_ > window)
    closeUpper(frames_[lowestOpen_++]);
}

void FolderStack::closeUpper(Frame &frame) {
  frame.descriptor.reset();
  recycle(frame);
}

void FolderStack::recycle(Frame &frame) {
  if (frame.buffer)
    spareBuffers_.push_back(std::move(frame.buffer));
  frame.position = frame.filled = 0;
  if (isLong(frame))
    endLong();
}

int FolderStack::fill(Frame &frame) {
  if (!frame.buffer) {
    if (spareBuffers_.empty()) {
      frame.buffer = std::make_unique_for_overwrite<Buffer>();
    } else {
      frame.buffer = std::move(spareBuffers_.back());
      spareBuffers_.pop_back();
    }
  }
  ssize_t count = ::getdents64(frame.descriptor.get(), frame.buffer->bytes.data(), bufferSize);
  // A folder that was removed meanwhile holds nothing any more.
  if (count < 0 && errno != ENOENT)
    return errno;
  frame.position = 0;
  frame.filled = count < 0 ? 0 : static_cast<std::uint32_t>(count);
  bool isFull = frame.filled > bufferSize - recordRoom;
  if (isFull && order_ == EntryOrder::ByInode && long_.owner == LongListing::none)
    fillLong(frame);
  return 0;
}

// Reads on behind what filled the buffer. Failures are left to the next call.
void FolderStack::fillLong(Frame &frame) {
  if (!long_.bytes)
    long_.bytes = std::make_unique_for_overwrite<std::byte[]>(longListingSize);
  std::memcpy(long_.bytes.get(), frame.buffer->bytes.data(), frame.filled);
  std::size_t filled = frame.filled;
  while (longListingSize - filled >= recordRoom) {
    ssize_t count =
        ::getdents64(frame.descriptor.get(), long_.bytes.get() + filled, longListingSize - filled);
    if (count <= 0)
      break;
    filled += static_cast<std::size_t>(count);
  }
  auto recordAt = [&](std::size_t at) {
    return reinterpret_cast<const dirent64 *>(long_.bytes.get() + at);
  };
  for (std::size_t at = 0; at < filled; at += recordAt(at)->d_reclen)
    if (!isDotOrDotDot(recordAt(at)->d_name))
      (recordAt(at)->d_type == DT_DIR ? long_.folders : long_.files)
          .push_back(static_cast<std::uint32_t>(at));
  std::sort(long_.files.begin(), long_.files.end(), [&](std::uint32_t left, std::uint32_t right) {
    return recordAt(left)->d_ino < recordAt(right)->d_ino;
  });
  long_.owner = static_cast<std::size_t>(&frame - &frames_[0]);
  frame.position = frame.filled = 0;
}

// Files first. As long as there are any, the position to come back to is that
// before all of them; then it is the one behind the folder given last.
const FolderEntry *FolderStack::nextLong(Frame &frame) {
  std::size_t next = long_.next++;
  if (next < long_.files.size())
    return give(long_.bytes.get() + long_.files[next]);
  next -= long_.files.size();
  if (next < long_.folders.size()) {
    const std::byte *record = long_.bytes.get() + long_.folders[next];
    frame.offset = reinterpret_cast<const dirent64 *>(record)->d_off;
    return give(record);
  }
  endLong();
  return nullptr;
}

void FolderStack::endLong() {
  long_.owner = LongListing::none;
  long_.files.clear();
  long_.folders.clear();
  long_.next = 0;
}

const FolderEntry *FolderStack::give(const std::byte *record) {
  const auto *entry = reinterpret_cast<const dirent64 *>(record);
  entry_ = {entry->d_name, entry->d_ino, entry->d_type};
  return &entry_;
}

const FolderEntry *FolderStack::next(StepOutcome &outcome) {
  outcome = {};
  Frame &frame = frames_.back();
  for (;;) {
    if (isLong(frame)) {
      if (const FolderEntry *entry = nextLong(frame))
        return entry;
    }
    if (frame.position >= frame.filled) {
      outcome = {TreeStep::List, fill(frame)};
      if (isLong(frame))
        continue;
      if (outcome.isFailed() || frame.filled == 0)
        return nullptr;
    }
    const auto *record =
        reinterpret_cast<const dirent64 *>(frame.buffer->bytes.data() + frame.position);
    frame.position += record->d_reclen;
    frame.offset = record->d_off;
    if (isDotOrDotDot(record->d_name))
      continue;
    entry_ = {record->d_name, record->d_ino, record->d_type};
    return &entry_;
  }
}

StepOutcome FolderStack::rewind() {
  Frame &frame = frames_.back();
  frame.position = frame.filled = 0;
  if (isLong(frame))
    endLong();
  frame.offset = 0;
  return {TreeStep::List, ::lseek(frame.descriptor.get(), 0, SEEK_SET) < 0 ? errno : 0};
}

StepOutcome FolderStack::leave() {
  Descriptor below = std::move(frames_.back().descriptor);
  recycle(frames_.back());
  names_.resize(frames_.back().name);
  frames_.pop_back();
  if (frames_.empty() || frames_.back().descriptor)
    return {};
  return {TreeStep::GoUp, reopenThrough(below)};
}

int FolderStack::reopenThrough(const Descriptor &below) {
  Frame &frame = frames_.back();
  Descriptor folder(::openat(below.get(), "..", openFlags));
  if (!folder)
    return errno;
  Identity identity;
  if (StepOutcome outcome = identify(folder.get(), identity); outcome.isFailed())
    return outcome.errnum();
  if (identity != frame.identity)
    return ESTALE;
  if (frame.offset != 0 && ::lseek(folder.get(), frame.offset, SEEK_SET) < 0)
    return errno;
  frame.descriptor = std::move(folder);
  lowestOpen_ = frames_.size() - 1;
  return 0;
}

bool FolderStack::isFolderOf(const Frame &frame, const Descriptor &folder) const {
  Identity identity;
  return folder && identify(folder.get(), identity).isDone() && identity == frame.identity;
}

// The lowest folder that the names lead to, and its index. Nothing without the
// root.
Descriptor FolderStack::openByNames(const Descriptor &root, std::size_t &index) const {
  Descriptor folder(::openat(root.get(), ".", openFlags));
  if (!isFolderOf(frames_[0], folder))
    return {};
  for (index = 0; index + 1 < frames_.size(); ++index) {
    const Frame &below = frames_[index + 1];
    Descriptor next(::openat(folder.get(), names_.c_str() + below.name, openFlags));
    if (!isFolderOf(below, next))
      break;
    folder = std::move(next);
  }
  return folder;
}

bool FolderStack::findAgain(const Descriptor &root, const LossHandler &lost) {
  std::size_t index = 0;
  Descriptor folder = openByNames(root, index);
  const std::size_t kept = folder ? index + 1 : 0;
  while (frames_.size() > kept) {
    lost(pathBelowRoot());
    names_.resize(frames_.back().name);
    frames_.pop_back();
  }
  if (!folder || ::lseek(folder.get(), frames_.back().offset, SEEK_SET) < 0)
    return false;
  frames_.back().descriptor = std::move(folder);
  lowestOpen_ = index;
  return true;
}

std::string FolderStack::pathBelowRoot() const {
  std::string path;
  for (std::size_t index = 1; index < frames_.size(); ++index) {
    if (index > 1)
      path += '/';
    path += names_.c_str() + frames_[index].name;
  }
  return path;
}

std::string FolderStack::pathOf(const std::string &root, const std::string &name) const {
  std::string path = root;
  for (const std::string &part : {pathBelowRoot(), name})
    if (!part.empty())
      path += "/" + part;
  return path;
}

} // namespace NS
