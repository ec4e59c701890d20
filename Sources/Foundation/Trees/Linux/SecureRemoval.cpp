// removefile: the removing walk, with each regular file overwritten first.
//
// The walk overwrites the data of a file once with noise that no volume can
// compress away. Holes stay holes, since filling them would only use up the
// disk. A file with several names loses its content under all of them. Volumes
// that write to new blocks instead of in place keep the old blocks out of our
// reach.
#include "Foundation/Trees/SecureRemoval.h"

#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Trees/Internal/TreeRemoval.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/random.h>
#include <sys/stat.h>
#include <vector>

namespace NS {
namespace {

constexpr std::size_t blockSize = 1024 * 1024;
constexpr std::size_t noiseSize = 64 * 1024;
static_assert(blockSize % noiseSize == 0);
constexpr unsigned patience = 16;

bool isSameItem(const struct stat &one, const struct stat &other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

class OverwritingEraser final : public ItemEraser {
public:
  StepOutcome erase(int folder, const char *name, unsigned char type) override {
    if (type != DT_REG && type != DT_UNKNOWN)
      return plain_.erase(folder, name, type);
    // Another file can take the name's place at any time; the walk must then
    // overwrite that one.
    StepOutcome outcome;
    for (unsigned attempt = 0; attempt < patience; ++attempt) {
      struct stat status;
      if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return {TreeStep::Look, errno};
      if (S_ISDIR(status.st_mode))
        return {TreeStep::Remove, EISDIR};
      if (!S_ISREG(status.st_mode))
        return plain_.erase(folder, name, type);
      outcome = eraseFile(folder, name, status);
      if (!outcome.isExchanged())
        return outcome;
    }
    return outcome;
  }

private:
  // isExchanged() when the name meanwhile means another item.
  StepOutcome eraseFile(int folder, const char *name, const struct stat &expected) {
    StepOutcome outcome = overwriteNamed(folder, name, expected);
    if (outcome.isDone())
      outcome = unlinkItem(folder, name);
    if (outcome.isDone())
      Progress::current().countItem(static_cast<std::uint64_t>(expected.st_size));
    return outcome;
  }

  StepOutcome overwriteNamed(int folder, const char *name, const struct stat &expected) {
    Descriptor file(
        ::openat(folder, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file && (errno == ELOOP || errno == ENXIO || errno == EISDIR))
      return {TreeStep::Check, ESTALE};
    if (!file)
      return {TreeStep::Open, errno};
    struct stat status;
    if (::fstat(file.get(), &status) != 0)
      return {TreeStep::Identify, errno};
    if (!S_ISREG(status.st_mode) || !isSameItem(status, expected))
      return {TreeStep::Check, ESTALE};
    if (int error = overwrite(file.get(), status.st_size))
      return {TreeStep::Write, error};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      return {TreeStep::Look, errno};
    return {TreeStep::Check, isSameItem(status, expected) ? 0 : ESTALE};
  }

  // Does not wait for data that is appended after the size was read.
  int overwrite(int file, off_t size) {
    for (off_t start = 0; start < size;) {
      off_t end = size;
      off_t data = ::lseek(file, start, SEEK_DATA);
      if (data < 0 && errno == ENXIO)
        break;
      if (data >= 0) {
        start = data;
        off_t hole = ::lseek(file, data, SEEK_HOLE);
        end = hole < 0 ? size : std::min(hole, size);
      }
      if (int error = overwriteRange(file, start, end))
        return error;
      start = end;
    }
    return size == 0 || ::fdatasync(file) == 0 ? 0 : errno;
  }

  int overwriteRange(int file, off_t start, off_t end) {
    const std::vector<std::byte> &block = noise();
    while (start < end) {
      if (Progress::current().isCancelled())
        return ECANCELED;
      std::size_t length = std::min(block.size(), static_cast<std::size_t>(end - start));
      if (int error = writeFully(file, block.data(), length, start))
        return error;
      start += static_cast<off_t>(length);
    }
    return 0;
  }

  const std::vector<std::byte> &noise() {
    std::call_once(noiseMade_, [this] { makeNoise(); });
    return noise_;
  }

  void makeNoise() {
    constexpr std::size_t mostAtOnce = 256; // random bytes
    noise_.resize(blockSize);
    // When the host has no random bytes, the zeros in the buffer serve.
    std::size_t filled = 0;
    while (filled < noiseSize && ::getentropy(noise_.data() + filled, mostAtOnce) == 0)
      filled += mostAtOnce;
    for (std::size_t at = noiseSize; at < blockSize; at += noiseSize)
      std::memcpy(noise_.data() + at, noise_.data(), noiseSize);
  }

  PlainEraser plain_;
  std::once_flag noiseMade_;
  std::vector<std::byte> noise_;
};

class RealSecureRemoval final : public SecureRemoval {
public:
  int removefile(const std::string &path, std::uint32_t flags) override {
    WalkShare share;
    PlainEraser plain;
    OverwritingEraser overwriting;
    bool secure = (flags & REMOVEFILE_SECURE_1_PASS_FLAG) != 0;
    ItemEraser &eraser =
        secure ? static_cast<ItemEraser &>(overwriting) : static_cast<ItemEraser &>(plain);
    bool whole = (flags & REMOVEFILE_RECURSIVE_FLAG) != 0;
    TreeResult failure =
        eraseItemAtPath(path, eraser, whole ? Recursion::WholeTree : Recursion::OnlyTheItem);
    if (!failure)
      return 0;
    // ENOENT concerns only the requested item.
    int error = failure->outcome.errnum();
    errno = error == ENOENT && !failure->isGone() ? ESTALE : error;
    return -1;
  }
};

} // namespace

SecureRemoval &SecureRemoval::real() {
  return lastingInstance<RealSecureRemoval>();
}

} // namespace NS
