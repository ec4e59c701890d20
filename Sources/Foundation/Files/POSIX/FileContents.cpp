// Reading and replacing whole files.
//
// A replacement writes a new file beside the former one, syncs it and renames it
// over that. So a reader, also one after a crash, meets the whole old or the whole
// new content. The new file has a numbered name and a lock (TemporaryNames.h). By
// the name the next replacement in the folder finds the leftover of a killed
// process; by the lock it knows a file that is still being written, and leaves it
// alone. The new file takes over the attributes of the former one before the
// rename. Until then only its owner may read it, so that at no moment more users
// can read the data than before. All steps go by the descriptor of the folder, so
// that they stay in this folder when its path comes to mean another.
#include "Foundation/Files/FileContents.h"

#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Descriptors/Internal/Descriptors.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Files/POSIX/AttributeCopy.h"
#include "Foundation/Files/POSIX/TemporaryNames.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Text/Unicode.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

// 0 or an errno value.
int readAll(int descriptor, std::string &data) {
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    ssize_t count = retrying([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count <= 0)
      return count < 0 ? errno : 0;
    if (data.size() + static_cast<std::size_t>(count) > FileContents::sizeLimit)
      return EFBIG;
    data.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

constexpr const char *temporaryPrefix = ".keepwell-new-";
// More names for when all numbered ones are in use.
constexpr unsigned randomNames = 16;

// Opens an item of a folder if it is a regular file. When the descriptor is
// empty, the status tells another kind of item; if that is of a regular file or
// could not be read, errno has the reason.
Descriptor openFile(int folder, const std::string &name, int flags, struct stat &status) {
  Descriptor file;
  int followed = (flags & O_NOFOLLOW) ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(folder, name.c_str(), &status, followed) != 0 || !S_ISREG(status.st_mode))
    return file;
  file = Descriptor(retrying(
      [&] { return ::openat(folder, name.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  if (file && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)))
    file.reset();
  return file;
}

// The former file may belong to another user, and an almost finished
// replacement already has that owner.
void removeLeftover(int folder, const std::string &name, uid_t owner) {
  struct stat status;
  Descriptor file = openFile(folder, name, O_RDONLY | O_NOFOLLOW, status);
  if (file && takeOver(folder, name, file.get(), owner) == 0)
    static_cast<void>(::unlinkat(folder, name.c_str(), 0));
}

// One replacement of a file: a temporary in the same folder that either takes
// the file's place or is removed again. It also removes leftovers of earlier
// ones whose process ended half-way.
class Replacement {
public:
  Replacement(int folder, std::string name) : folder_(folder), name_(std::move(name)) {}
  ~Replacement() {
    if (exists_)
      static_cast<void>(::unlinkat(folder_, temporary_.c_str(), 0));
  }
  Replacement(const Replacement &) = delete;
  Replacement &operator=(const Replacement &) = delete;

  // 0 or an errno value.
  int perform(std::string_view data);

private:
  int openFormer();
  Descriptor create();
  Descriptor createNamed(std::string name, mode_t mode);
  int fill(int descriptor, std::string_view data) const;
  int takeAfterFormer(int descriptor) const;

  int folder_;
  std::string name_;
  Descriptor former_; // empty when there is no former file
  struct stat formerStatus_ = {};
  std::string temporary_;
  bool exists_ = false;
};

// Opens the former file. There is none to take attributes from when the name is
// free, or belongs to a dangling link or a special file. Returns 0 or an errno
// value, EISDIR for a folder.
int Replacement::openFormer() {
  former_ = openFile(folder_, name_, O_RDONLY, formerStatus_);
  if (S_ISDIR(formerStatus_.st_mode))
    return EISDIR;
  bool isHidden = S_ISREG(formerStatus_.st_mode) && !former_ && errno != ENOENT;
  return isHidden ? errno : 0;
}

// Empty, with errno set, when no name is left.
Descriptor Replacement::create() {
  // Never grants access that the former file denied, not even for a moment.
  mode_t mode = former_ ? formerStatus_.st_mode & 0600 : 0666;
  uid_t owner = former_ ? formerStatus_.st_uid : ::geteuid();
  Descriptor result;
  errno = EEXIST;
  for (unsigned slot = 0; slot < temporarySlots; ++slot) {
    int error = errno;
    std::string name = temporaryName(temporaryPrefix, slot);
    removeLeftover(folder_, name, owner);
    errno = error;
    if (!result && errno == EEXIST)
      result = createNamed(std::move(name), mode);
  }
  for (unsigned attempt = 0; attempt < randomNames && !result && errno == EEXIST; ++attempt)
    result = createNamed(temporaryName(temporaryPrefix, temporarySlots), mode);
  return result;
}

Descriptor Replacement::createNamed(std::string name, mode_t mode) {
  Descriptor file(retrying([&] {
    return ::openat(folder_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    mode);
  }));
  if (!file)
    return file;
  int error = takeOver(folder_, name, file.get(), ::geteuid());
  if (error == EWOULDBLOCK || error == ESTALE) {
    file.reset();
    errno = EEXIST;
    return file;
  }
  temporary_ = std::move(name);
  exists_ = true;
  return file;
}

int Replacement::fill(int descriptor, std::string_view data) const {
  if (int failure = writeFully(descriptor, data.data(), data.size(), 0))
    return failure;
  return retrying([&] { return ::fsync(descriptor); }) == 0 ? 0 : errno;
}

// The owner comes first: a list that grants rights to the owning group then
// means the right group. The mode comes last: a change of the owner clears bits
// of it, and in a file with a list its bits of the group are the list's mask.
int Replacement::takeAfterFormer(int descriptor) const {
  if (!former_)
    return 0;
  mode_t mode = formerStatus_.st_mode & 07777;
  if (::fchown(descriptor, formerStatus_.st_uid, formerStatus_.st_gid) != 0)
    return errno;
  LeftOut leftOut;
  if (int failure = copyAttributes(former_.get(), descriptor, CopiedData::Another, mode, leftOut))
    return failure;
  leftOut.report(name_);
  return ::fchmod(descriptor, mode) == 0 ? 0 : errno;
}

int Replacement::perform(std::string_view data) {
  if (int failure = openFormer())
    return failure;
  Descriptor descriptor(create());
  if (!descriptor)
    return errno;
  if (int failure = fill(descriptor.get(), data))
    return failure;
  if (int failure = takeAfterFormer(descriptor.get()))
    return failure;
  // Renamed before the descriptor is closed: closing releases the lock, and
  // without the lock the next replacement would take the file for a leftover.
  // All data is synced, so closing has no failure left to report.
  if (::renameat(folder_, temporary_.c_str(), folder_, name_.c_str()) != 0)
    return errno;
  exists_ = false;
  // The file is in its place; a failed sync of the folder does not undo that.
  static_cast<void>(::fsync(folder_));
  return 0;
}

class RealFileContents final : public FileContents {
public:
  std::optional<std::string> dataWithContentsOfFile(const std::string &path,
                                                    ErrorSlot error) override {
    auto failed = [&](int errnum) {
      storeError(error, fileError(errnum, path, FileAccess::Reading));
      return std::nullopt;
    };
    if (holdsNul(path))
      return failed(EINVAL);
    struct stat status;
    Descriptor descriptor(
        retrying([&] { return descriptors::openFileOrFolder(path.c_str(), O_RDONLY); }));
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0)
      return failed(errno);
    if (!S_ISREG(status.st_mode))
      return failed(S_ISDIR(status.st_mode) ? EISDIR : EOPNOTSUPP);
    std::string data;
    if (status.st_size > static_cast<off_t>(sizeLimit))
      return failed(EFBIG);
    data.reserve(static_cast<std::size_t>(status.st_size));
    if (int failure = readAll(descriptor.get(), data))
      return failed(failure);
    return data;
  }

  bool writeToFileAtomically(const std::string &path, std::string_view data,
                             ErrorSlot error) override {
    int failure = replace(path, data);
    if (failure != 0)
      storeError(error, fileError(failure, path, FileAccess::Writing));
    return failure == 0;
  }

private:
  static int replace(const std::string &path, std::string_view data) {
    if (holdsNul(path))
      return EINVAL;
    std::string folderPath = stringByDeletingLastPathComponent(path);
    std::string name = lastPathComponent(path);
    if (name.empty() || name == "/" || name == "." || name == "..")
      return EINVAL;
    const char *folderName = folderPath.empty() ? "." : folderPath.c_str();
    Descriptor folder(
        retrying([&] { return ::open(folderName, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return folder ? Replacement(folder.get(), name).perform(data) : errno;
  }
};

} // namespace

FileContents &FileContents::real() {
  return lastingInstance<RealFileContents>();
}

bool isLimitOfThisProcess(const Error &error) {
  int errnum = errnoBeneath(error);
  return errnum == EFBIG || isExhaustion(errnum);
}

std::optional<std::string> FileContents::dataIfReadable(const std::string &path) {
  std::optional<Error> error;
  auto data = dataWithContentsOfFile(path, &error);
  throwOnShortage(error);
  return data;
}

std::optional<std::string> FileContents::stringWithContentsOfFile(const std::string &path,
                                                                  ErrorSlot error) {
  auto data = dataWithContentsOfFile(path, error);
  if (!data || isWellFormedUTF8(*data))
    return data;
  storeError(error, Error(CocoaErrorDomain, FileReadCorruptFileError,
                          userInfoWith(FilePathErrorKey, path)));
  return std::nullopt;
}

} // namespace NS
