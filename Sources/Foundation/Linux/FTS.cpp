// The walk over a file hierarchy: getdents64 in large batches, one statx for
// each item, every name resolved relative to its folder's descriptor.
//
// A frame stands for each folder on the way down. Only the deepest frames (and
// the root) hold a descriptor; one that was given up is opened again from its
// child's ".." and recognised by device and inode. The batches of all frames
// lie on one stack of records; when that grows large, a frame's unread records
// are forgotten and read again later from the position of the last one used.
#include "Foundation/FTS.h"

#include "Foundation/Linux/DirectoryRecords.h"
#include "Foundation/SharedInstance.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <unordered_set>

namespace NS {
namespace {

constexpr std::size_t batchSize = 64 * 1024;
// Records kept at most before frames forget what they have not used yet, and
// the batch from then on: whatever is forgotten must be read again.
constexpr std::size_t recordBudget = 4 * 1024 * 1024;
constexpr std::size_t frugalBatchSize = 4 * 1024;
// Descriptors that one walk holds at most; fewer when the process runs out.
constexpr std::size_t descriptorBudget = 16;
// Ancestors above this level are compared one by one, deeper ones by a table.
constexpr std::size_t linearAncestors = 32;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

struct FolderID {
  std::uint64_t device;
  std::uint64_t inode;
  friend bool operator==(const FolderID &, const FolderID &) = default;
};

struct FolderIDHash {
  std::size_t operator()(const FolderID &id) const {
    return static_cast<std::size_t>((id.inode ^ (id.device << 40)) * 0x9e3779b97f4a7c15u);
  }
};

FolderID idOf(const FTSStat &status) {
  return {status.device, status.inode};
}

enum class Stage : std::uint8_t {
  Announced, // returned as D, not opened
  Open,      // its items are being returned
  Left,      // returned for the second time
};

struct Frame {
  FTSEntry entry;
  std::size_t pathLength = 0;
  std::size_t nameLength = 0;
  int descriptor = -1; // -1 too while given up
  Stage stage = Stage::Announced;
  bool skip = false;
  bool atEnd = false;  // the volume has no more records
  bool reseek = false; // the descriptor does not stand at nextOffset
  // Unread records: [cursor, end) of the record stack, the batch from base on.
  std::size_t base = 0;
  std::size_t cursor = 0;
  std::size_t end = 0;
  std::int64_t nextOffset = 0; // behind the record used last
  FolderID id{};               // of the descriptor given up
};

int readStatus(int folder, const char *name, FTSStat &status) {
  struct statx found;
  constexpr unsigned mask =
      STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO | STATX_SIZE | STATX_BLOCKS;
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, mask, &found) != 0)
    return errno;
  status.device = gnu_dev_makedev(found.stx_dev_major, found.stx_dev_minor);
  status.inode = found.stx_ino;
  status.mode = found.stx_mode;
  status.linkCount = found.stx_nlink;
  status.size = static_cast<std::int64_t>(found.stx_size);
  status.blocks = static_cast<std::int64_t>(found.stx_blocks);
  status.blockSize = static_cast<std::int32_t>(found.stx_blksize);
  return 0;
}

bool readID(int descriptor, FolderID &id) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0)
    return false;
  id = {status.st_dev, status.st_ino};
  return true;
}

FTSInfo infoOfMode(std::uint32_t mode) {
  if (S_ISDIR(mode))
    return FTSInfo::D;
  if (S_ISREG(mode))
    return FTSInfo::F;
  return S_ISLNK(mode) ? FTSInfo::SL : FTSInfo::DEFAULT;
}

// The length of the root's name within its path: all of it when no slash
// separates a component, nothing when the path ends in one.
std::size_t rootNameLength(const std::string &path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path == "/")
    return path.size();
  return path.size() - slash - 1;
}

class Stream final : public FTSStream {
public:
  Stream(const std::string &path, int options) : options_(options), path_(path) {
    rootParent_.level = -1;
  }
  ~Stream() override { closeAll(); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;

  FTSEntry *read() override;
  void set(FTSEntry &entry, FTSInstruction instruction) override;
  void close() override { closeAll(); }

private:
  Frame &top() { return frames_[depth_ - 1]; }
  FTSEntry *enter(int folder, const char *name, std::size_t nameLength, std::uint8_t type);
  FTSEntry *push(const FTSStat &status, std::size_t nameLength);
  FTSEntry *nextItem();
  FTSEntry *leave(Frame &frame);
  FTSEntry *cannotRead(Frame &frame, int errnum);
  bool mayDescend(const Frame &frame) const;
  int descend();
  void pop();

  const DirectoryRecord *nextRecord(Frame &frame);
  void refill(Frame &frame);
  void forgetUnread(Frame &frame);

  bool giveUpOldest();
  int openWithin(int folder, const char *name, int flags);
  void restore(std::size_t index, int child);
  int openFromRoot(std::size_t index);
  bool isOpenAncestor(const FolderID &id) const;
  void closeAll();

  void appendName(const char *name, std::size_t length);
  void point(FTSEntry &entry, std::size_t pathLength, std::size_t nameLength);
  void followPath();

  const int options_;
  bool started_ = false;
  std::string path_;                // of the entry returned last
  const char *pathStart_ = nullptr; // where the views of the frames point
  FTSEntry rootParent_;
  FTSEntry leaf_; // whatever is no folder
  // The first depth_ frames are in use; the others wait to be used again, as
  // entries must not move while a caller holds them.
  std::deque<Frame> frames_;
  std::size_t depth_ = 0;
  // The frames from here on hold their descriptors, and so does the root's.
  std::size_t firstHeld_ = 1;
  RecordStack records_;
  std::unordered_set<FolderID, FolderIDHash> deepAncestors_;
};

FTSEntry *Stream::read() {
  if (!started_) {
    started_ = true;
    pathStart_ = path_.data();
    return enter(AT_FDCWD, path_.c_str(), rootNameLength(path_), DT_UNKNOWN);
  }
  if (depth_ > 0 && top().stage == Stage::Left)
    pop();
  if (depth_ == 0)
    return nullptr;
  Frame &frame = top();
  if (frame.stage == Stage::Announced) {
    if (!mayDescend(frame))
      return leave(frame);
    if (int errnum = descend(); errnum != 0)
      return cannotRead(frame, errnum);
  }
  return nextItem();
}

void Stream::set(FTSEntry &entry, FTSInstruction instruction) {
  if (instruction != FTSInstruction::SKIP)
    return;
  if (depth_ > 0 && &top().entry == &entry)
    top().skip = true;
}

// Makes the entry of the item whose path is path_.
FTSEntry *Stream::enter(int folder, const char *name, std::size_t nameLength, std::uint8_t type) {
  FTSEntry *parent = depth_ > 0 ? &top().entry : &rootParent_;
  FTSStat status;
  FTSInfo info = FTSInfo::NSOK;
  int errnum = 0;
  bool mayBeFolder = type == DT_DIR || type == DT_UNKNOWN;
  if (mayBeFolder || !(options_ & FTSOption::NOSTAT)) {
    errnum = readStatus(folder, name, status);
    info = errnum == 0 ? infoOfMode(status.mode) : FTSInfo::NS;
  }
  if (info == FTSInfo::D) {
    if (!isOpenAncestor(idOf(status)))
      return push(status, nameLength);
    info = FTSInfo::DC;
  }
  leaf_.info = info;
  leaf_.errnum = errnum;
  leaf_.level = static_cast<int>(depth_);
  leaf_.number = 0;
  leaf_.parent = parent;
  leaf_.statp = status;
  point(leaf_, path_.size(), nameLength);
  return &leaf_;
}

FTSEntry *Stream::push(const FTSStat &status, std::size_t nameLength) {
  FTSEntry *parent = depth_ > 0 ? &top().entry : &rootParent_;
  if (depth_ == frames_.size())
    frames_.emplace_back();
  Frame &frame = frames_[depth_];
  frame = Frame{};
  frame.pathLength = path_.size();
  frame.nameLength = nameLength;
  frame.entry.level = static_cast<int>(depth_);
  frame.entry.parent = parent;
  frame.entry.statp = status;
  point(frame.entry, frame.pathLength, nameLength);
  if (depth_ >= linearAncestors)
    deepAncestors_.insert(idOf(status));
  ++depth_;
  return &frame.entry;
}

FTSEntry *Stream::nextItem() {
  Frame &frame = top();
  while (const DirectoryRecord *record = nextRecord(frame)) {
    if (isDotOrDotDot(record->name))
      continue;
    std::size_t length = std::strlen(record->name);
    path_.resize(frame.pathLength);
    appendName(record->name, length);
    return enter(frame.descriptor, record->name, length, record->type);
  }
  return leave(frame);
}

FTSEntry *Stream::leave(Frame &frame) {
  frame.stage = Stage::Left;
  frame.entry.info = frame.entry.errnum == 0 ? FTSInfo::DP : FTSInfo::ERR;
  path_.resize(frame.pathLength);
  point(frame.entry, frame.pathLength, frame.nameLength);
  return &frame.entry;
}

FTSEntry *Stream::cannotRead(Frame &frame, int errnum) {
  frame.entry.errnum = errnum;
  leave(frame);
  frame.entry.info = FTSInfo::DNR;
  return &frame.entry;
}

bool Stream::mayDescend(const Frame &frame) const {
  if (frame.skip)
    return false;
  return !(options_ & FTSOption::XDEV) || frame.entry.statp.device == frames_[0].entry.statp.device;
}

// Opens the folder announced last. Its path is path_, so its name ends there.
int Stream::descend() {
  Frame &frame = top();
  std::size_t index = depth_ - 1;
  const char *name = path_.c_str();
  int folder = AT_FDCWD;
  if (index > 0) {
    Frame &parent = frames_[index - 1];
    name += path_.size() - frame.nameLength;
    folder = parent.descriptor;
    if (parent.end > recordBudget)
      forgetUnread(parent);
    frame.base = frame.cursor = frame.end = parent.end;
    if (index - firstHeld_ + 2 > descriptorBudget)
      giveUpOldest();
  }
  // A root given as "link/" names the folder behind the link.
  frame.descriptor = openWithin(folder, name, folderFlags);
  if (frame.descriptor < 0)
    return errno;
  frame.stage = Stage::Open;
  return 0;
}

void Stream::pop() {
  Frame &frame = top();
  std::size_t index = depth_ - 1;
  if (index >= linearAncestors)
    deepAncestors_.erase(idOf(frame.entry.statp));
  if (index > 0 && frames_[index - 1].descriptor < 0)
    restore(index - 1, frame.descriptor);
  if (frame.descriptor >= 0)
    ::close(frame.descriptor);
  frame.descriptor = -1;
  --depth_;
}

const DirectoryRecord *Stream::nextRecord(Frame &frame) {
  if (frame.cursor == frame.end && !frame.atEnd)
    refill(frame);
  if (frame.cursor == frame.end)
    return nullptr;
  const DirectoryRecord *record = &directoryRecordAt(records_.at(frame.cursor));
  frame.cursor += record->length;
  frame.nextOffset = record->nextOffset;
  return record;
}

void Stream::refill(Frame &frame) {
  std::size_t size = frame.base + batchSize > recordBudget ? frugalBatchSize : batchSize;
  records_.reserve(frame.base + size);
  frame.cursor = frame.end = frame.base;
  long count = -1;
  if (!frame.reseek || ::lseek(frame.descriptor, frame.nextOffset, SEEK_SET) >= 0)
    count = ::syscall(SYS_getdents64, frame.descriptor, records_.at(frame.base), size);
  frame.reseek = false;
  if (count > 0) {
    frame.end += static_cast<std::size_t>(count);
    return;
  }
  frame.atEnd = true;
  // A folder that was removed meanwhile has nothing more to list.
  if (count < 0 && errno != ENOENT)
    frame.entry.errnum = errno;
}

void Stream::forgetUnread(Frame &frame) {
  frame.cursor = frame.end = frame.base;
  frame.reseek = true;
}

// Closes the highest descriptor but the root's; the deepest two stay, since
// the next name is looked up in one of them.
bool Stream::giveUpOldest() {
  if (firstHeld_ + 2 > depth_ - 1)
    return false;
  Frame &frame = frames_[firstHeld_];
  ++firstHeld_;
  if (frame.descriptor < 0)
    return true;
  // Without an identity it could not be recognised, and is lost on return.
  if (!readID(frame.descriptor, frame.id))
    frame.id = {};
  ::close(frame.descriptor);
  frame.descriptor = -1;
  frame.reseek = true;
  return true;
}

int Stream::openWithin(int folder, const char *name, int flags) {
  for (;;) {
    int descriptor = ::openat(folder, name, flags);
    if (descriptor >= 0 || (errno != EMFILE && errno != ENFILE))
      return descriptor;
    int errnum = errno;
    if (!giveUpOldest()) {
      errno = errnum;
      return -1;
    }
  }
}

// Opens again the folder of a frame that gave its descriptor up. When it is no
// longer there, its unread items are lost and it reads as ERR.
void Stream::restore(std::size_t index, int child) {
  Frame &frame = frames_[index];
  int descriptor = child >= 0 ? ::openat(child, "..", folderFlags) : -1;
  FolderID id{};
  bool found = descriptor >= 0 && readID(descriptor, id) && id == frame.id;
  if (!found) {
    if (descriptor >= 0)
      ::close(descriptor);
    descriptor = openFromRoot(index);
  }
  firstHeld_ = index;
  frame.descriptor = descriptor;
  if (descriptor >= 0)
    return;
  frame.entry.errnum = errno;
  frame.cursor = frame.end = frame.base;
  frame.atEnd = true;
}

// The long way: name by name from the root's descriptor, following no link.
int Stream::openFromRoot(std::size_t index) {
  int descriptor = -1;
  for (std::size_t at = 1; at <= index; ++at) {
    std::string name(frames_[at].entry.name);
    int flags = at == index ? folderFlags : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int next = ::openat(at == 1 ? frames_[0].descriptor : descriptor, name.c_str(), flags);
    int errnum = errno;
    if (descriptor >= 0)
      ::close(descriptor);
    errno = errnum;
    if (next < 0)
      return -1;
    descriptor = next;
  }
  FolderID id{};
  if (readID(descriptor, id) && id == frames_[index].id)
    return descriptor;
  ::close(descriptor);
  errno = ENOENT;
  return -1;
}

bool Stream::isOpenAncestor(const FolderID &id) const {
  for (std::size_t index = 0; index < std::min(depth_, linearAncestors); ++index)
    if (idOf(frames_[index].entry.statp) == id)
      return true;
  return depth_ > linearAncestors && deepAncestors_.contains(id);
}

void Stream::closeAll() {
  for (std::size_t index = 0; index < depth_; ++index)
    if (frames_[index].descriptor >= 0)
      ::close(frames_[index].descriptor);
  depth_ = 0;
  started_ = true;
}

void Stream::appendName(const char *name, std::size_t length) {
  if (path_.empty() || path_.back() != '/')
    path_ += '/';
  path_.append(name, length);
  if (path_.data() != pathStart_)
    followPath();
}

void Stream::point(FTSEntry &entry, std::size_t pathLength, std::size_t nameLength) {
  entry.path = std::string_view(path_.data(), pathLength);
  entry.name = entry.path.substr(pathLength - nameLength);
}

// The path moved in memory; so do the views of every folder on the way.
void Stream::followPath() {
  pathStart_ = path_.data();
  for (std::size_t index = 0; index < depth_; ++index)
    point(frames_[index].entry, frames_[index].pathLength, frames_[index].nameLength);
}

class FileHierarchies final : public FTS {
public:
  std::unique_ptr<FTSStream> open(const std::string &path, int options) override {
    constexpr int served =
        FTSOption::NOCHDIR | FTSOption::NOSTAT | FTSOption::PHYSICAL | FTSOption::XDEV;
    bool usable = path.find('\0') == std::string::npos && !(options & ~served) &&
                  (options & FTSOption::PHYSICAL);
    if (path.empty() || !usable) {
      errno = path.empty() ? ENOENT : EINVAL;
      return nullptr;
    }
    return std::make_unique<Stream>(path, options);
  }
};

SharedInstance<FTS> &instance() {
  static FileHierarchies real;
  static SharedInstance<FTS> shared(real);
  return shared;
}

} // namespace

FTS &FTS::shared() {
  return instance().get();
}

FTS *FTS::exchangeShared(FTS *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
