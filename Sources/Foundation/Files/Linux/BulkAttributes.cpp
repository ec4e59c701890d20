// Fills the packed records from listings and statuses. The place within a folder
// is the descriptor's own offset: the next call reads records again that did
// not fit into the caller's buffer.
#include "Foundation/Files/BulkAttributes.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Files/Internal/AttributeRecords.h"
#include "Foundation/Files/POSIX/ItemCalls.h"
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace NS {
namespace {

// Holds about as many records as a caller's buffer of sixteen long names, so
// that few are read twice.
constexpr std::size_t directoryBufferSize = 2048;

std::uint32_t objectType(std::uint32_t mode) {
  switch (mode & S_IFMT) {
  case S_IFREG:
    return VnodeRegular;
  case S_IFDIR:
    return VnodeDirectory;
  case S_IFLNK:
    return VnodeLink;
  case S_IFBLK:
    return VnodeBlockDevice;
  case S_IFCHR:
    return VnodeCharacterDevice;
  case S_IFSOCK:
    return VnodeSocket;
  case S_IFIFO:
    return VnodeFIFO;
  default:
    return VnodeNone;
  }
}

bool readAttributes(int folder, const char *name, ItemAttributes &attributes) {
  FTSStat found;
  if (int error = foldercalls::readStatus(folder, name, found)) {
    errno = error;
    return false;
  }
  attributes.type = objectType(found.mode);
  // A folder has no size attributes of files.
  bool isFolder = attributes.type == VnodeDirectory;
  attributes.totalSize = isFolder ? 0 : static_cast<std::uint64_t>(found.size);
  attributes.blockSize = isFolder ? 0 : static_cast<std::uint32_t>(found.blockSize);
  return true;
}

bool mayPass(int error) {
  return error == ENOMEM || error == EAGAIN;
}

void logEnd(int folder, int error) {
  std::string path;
  static_cast<void>(itemcalls::readPath(folder, path));
  Log("%@ cannot be read to its end: %s", path, std::generic_category().message(error));
}

// The records of one call for a caller's buffer.
class Batch {
public:
  Batch(int descriptor, const AttributeList &list, void *buffer, std::size_t size,
        std::uint32_t wanted)
      : descriptor_(descriptor), list_(list), next_(static_cast<char *>(buffer)), left_(size),
        wanted_(wanted) {}

  // 0, 1 at the end of the folder, -1 with errno set.
  int fill() {
    alignas(8) char bytes[directoryBufferSize];
    while (count_ < wanted_) {
      long read = retrying([&] { return foldercalls::list(descriptor_, bytes, sizeof bytes); });
      if (read < 0)
        return failed(errno);
      if (read == 0)
        return 1;
      if (!take(bytes, static_cast<std::size_t>(read)))
        break;
    }
    return refused_ ? -1 : 0;
  }
  std::uint32_t count() const { return count_; }

private:
  int failed(int error) const {
    // A folder that was removed meanwhile has no further entries.
    if (error == ENOENT)
      return 1;
    // Earlier records come first; the next call meets the failure again.
    if (count_ > 0)
      return 0;
    if (mayPass(error))
      return -1;
    logEnd(descriptor_, error);
    return 1;
  }

  // Goes back to the first record that did not fit, and returns false then.
  bool take(const char *bytes, std::size_t size) {
    std::int64_t place = before_;
    for (std::size_t at = 0; at < size;) {
      const DirectoryRecord &record = directoryRecordAt(bytes + at);
      if (count_ == wanted_ || !add(record.name)) {
        ::lseek(descriptor_, place, SEEK_SET);
        return false;
      }
      place = record.nextOffset;
      at += record.length;
    }
    before_ = place;
    return true;
  }

  bool add(const char *name) {
    ItemAttributes attributes;
    if (isDotOrDotDot(name) || !readAttributes(descriptor_, name, attributes))
      return true;
    std::size_t length = writeAttributeRecord(next_, left_, list_, name, attributes);
    if (length == 0) {
      // Repeated calls with a buffer too small for even one record would never
      // advance.
      refused_ = count_ == 0;
      if (refused_)
        errno = ERANGE;
      return false;
    }
    next_ += length;
    left_ -= length;
    ++count_;
    return true;
  }

  int descriptor_;
  const AttributeList &list_;
  char *next_;
  std::size_t left_;
  std::uint32_t wanted_;
  std::uint32_t count_ = 0;
  std::int64_t before_ = ::lseek(descriptor_, 0, SEEK_CUR); // of the present batch
  bool refused_ = false;
};

class PackedRecords final : public BulkAttributes {
public:
  int getattrlist(const char *path, const AttributeList &list, void *buffer, std::size_t size,
                  std::uint32_t /*options*/) override {
    ItemAttributes attributes;
    if (!readAttributes(AT_FDCWD, path, attributes))
      return -1;
    if (writeAttributeRecord(buffer, size, list, nullptr, attributes) > 0)
      return 0;
    errno = ERANGE;
    return -1;
  }

  int getdirentriesattr(int descriptor, const AttributeList &list, void *buffer, std::size_t size,
                        std::uint32_t &count, std::uint32_t & /*base*/, std::uint32_t & /*state*/,
                        std::uint32_t /*options*/) override {
    Batch batch(descriptor, list, buffer, size, count);
    count = 0;
    int result = batch.fill();
    if (result >= 0)
      count = batch.count();
    return result;
  }
};

} // namespace

BulkAttributes &BulkAttributes::real() {
  return lastingInstance<PackedRecords>();
}

} // namespace NS
