// The shared file manager. It handles single items itself, and whole trees by
// the operations of TreeOperations.h.
#include "Foundation/Trees/FileManager.h"

#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Trees/Internal/TreeOperations.h"
#include "Foundation/Walking/Exhaustion.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

// A system call would cut such a path short at the NUL byte.
bool isCutShort(const std::string &path) {
  if (path.find('\0') == std::string::npos)
    return false;
  errno = EINVAL;
  return true;
}

bool statusOf(const std::string &path, struct stat &status) {
  if (isCutShort(path))
    return false;
  // When the system lacks memory for the look-up, the item may still exist.
  Patience patience;
  int result = 0;
  do
    result = ::stat(path.c_str(), &status);
  while (result != 0 && patience.waitOut(errno));
  return result == 0;
}

bool mayAccess(const std::string &path, int mode) {
  return !isCutShort(path) && ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

FileType fileType(mode_t mode) {
  switch (mode & S_IFMT) {
  case S_IFREG:
    return FileType::Regular;
  case S_IFDIR:
    return FileType::Directory;
  case S_IFLNK:
    return FileType::SymbolicLink;
  case S_IFSOCK:
    return FileType::Socket;
  case S_IFCHR:
    return FileType::CharacterSpecial;
  case S_IFBLK:
    return FileType::BlockSpecial;
  default:
    return FileType::Unknown;
  }
}

FileAttributes attributesFrom(const struct stat &status) {
  FileAttributes attributes;
  attributes.type = fileType(status.st_mode);
  attributes.size = static_cast<std::uint64_t>(status.st_size);
  attributes.posixPermissions = status.st_mode & 07777;
  attributes.ownerAccountID = status.st_uid;
  attributes.groupOwnerAccountID = status.st_gid;
  attributes.referenceCount = status.st_nlink;
  attributes.modificationTime = status.st_mtime;
  return attributes;
}

bool fail(int errnum, const std::string &path, FileAccess access, ErrorSlot error) {
  storeError(error, fileError(errnum, path, access));
  return false;
}

// Stores the failure, if there is one. True for a success.
bool finish(const TreeResult &result, ErrorSlot error, FileAccess access = FileAccess::Writing) {
  if (result)
    storeError(error, errorOf(*result, access));
  return !result;
}

// Calls the handler with each entry. After a failure the entries listed so far
// are void.
template <typename Handler>
bool listFolder(const std::string &path, ErrorSlot error, const Handler &handler) {
  Descriptor folder(isCutShort(path) ? -1 : ::open(path.c_str(), folderFlags & ~O_NOFOLLOW));
  if (!folder)
    return fail(errno, path, FileAccess::Reading, error);
  FolderChain chain({});
  StepOutcome outcome = chain.openRoot(std::move(folder));
  while (const FolderEntry *entry = outcome.isDone() ? chain.next(outcome) : nullptr)
    handler(*entry, chain);
  return outcome.isDone() || fail(outcome.errnum(), path, FileAccess::Reading, error);
}

bool makeFolder(const std::string &path) {
  if (::mkdir(path.c_str(), 0777) == 0)
    return true;
  int error = errno;
  struct stat status;
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
    return true;
  errno = error;
  return false;
}

// Makes every folder of the path, from the top. Other makers at the same time
// do no harm.
bool makeFolders(const std::string &path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    if (!makeFolder(path.substr(0, slash)))
      return false;
  return makeFolder(path);
}

class RealFileManager final : public FileManager {
public:
  bool fileExistsAtPath(const std::string &path) override {
    struct stat status;
    return statusOf(path, status);
  }

  bool fileExistsAtPath(const std::string &path, bool &isDirectory) override {
    struct stat status;
    bool exists = statusOf(path, status);
    isDirectory = exists && S_ISDIR(status.st_mode);
    return exists;
  }

  bool isReadableFileAtPath(const std::string &path) override { return mayAccess(path, R_OK); }
  bool isExecutableFileAtPath(const std::string &path) override { return mayAccess(path, X_OK); }

  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                    ErrorSlot error) override {
    std::vector<std::string> names;
    auto keepName = [&](const FolderEntry &entry, const FolderChain &) {
      names.emplace_back(entry.name);
    };
    if (!listFolder(path, error, keepName))
      return {};
    return names;
  }

  std::optional<std::vector<URL>> contentsOfDirectoryAtURL(const URL &url,
                                                           DirectoryEnumerationOptions options,
                                                           ErrorSlot error) override {
    std::vector<URL> children;
    std::string prefix = url.path() == "/" ? "/" : url.path() + "/";
    bool skipsHidden = (options & DirectoryEnumerationSkipsHiddenFiles) != 0;
    auto keepURL = [&](const FolderEntry &entry, const FolderChain &folder) {
      if (!skipsHidden || entry.name[0] != '.')
        children.push_back(URL::fileURLWithPath(prefix + entry.name, folder.isFolder(entry)));
    };
    if (!listFolder(url.path(), error, keepURL))
      return {};
    return children;
  }

  std::unique_ptr<PathEnumerator> enumeratorAtPath(const std::string &path) override {
    return openPathEnumerator(path);
  }

  std::unique_ptr<URLEnumerator> enumeratorAtURL(const URL &url,
                                                 DirectoryEnumerationOptions options) override {
    return openURLEnumerator(url, options);
  }

  std::optional<FileAttributes> attributesOfItemAtPath(const std::string &path,
                                                       ErrorSlot error) override {
    struct stat status;
    if (!isCutShort(path) && ::lstat(path.c_str(), &status) == 0)
      return attributesFrom(status);
    fail(errno, path, FileAccess::Reading, error);
    return {};
  }

  std::optional<std::string> destinationOfSymbolicLinkAtPath(const std::string &path,
                                                             ErrorSlot error) override {
    std::string target(256, '\0');
    while (!isCutShort(path)) {
      ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
      if (length < 0)
        break;
      if (static_cast<std::size_t>(length) < target.size()) {
        target.resize(static_cast<std::size_t>(length));
        return target;
      }
      target.resize(target.size() * 2);
    }
    fail(errno, path, FileAccess::Reading, error);
    return {};
  }

  bool removeItemAtPath(const std::string &path, ErrorSlot error) override {
    WalkShare share;
    return finish(removeTree(path), error);
  }
  bool removeItemAtURL(const URL &url, ErrorSlot error) override {
    return removeItemAtPath(url.path(), error);
  }

  bool moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      ErrorSlot error) override {
    WalkShare share;
    return finish(moveTree(srcPath, dstPath), error);
  }
  bool moveItemAtURL(const URL &srcURL, const URL &dstURL, ErrorSlot error) override {
    return moveItemAtPath(srcURL.path(), dstURL.path(), error);
  }
  bool copyItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      ErrorSlot error) override {
    WalkShare share;
    return finish(copyTree(srcPath, dstPath), error, FileAccess::Reading);
  }

  bool createDirectoryAtPath(const std::string &path, bool withIntermediateDirectories,
                             ErrorSlot error) override {
    bool made =
        !isCutShort(path) &&
        (withIntermediateDirectories ? makeFolders(path) : ::mkdir(path.c_str(), 0777) == 0);
    return made || fail(errno, path, FileAccess::Writing, error);
  }
  bool createDirectoryAtURL(const URL &url, bool withIntermediateDirectories,
                            ErrorSlot error) override {
    return createDirectoryAtPath(url.path(), withIntermediateDirectories, error);
  }

  bool trashItemAtURL(const URL &url, ErrorSlot error) override {
    std::optional<Error> failure = moveToTrash(url.path());
    if (failure)
      storeError(error, *failure);
    return !failure;
  }
};

} // namespace

Error errorOf(const TreeFailure &failure, FileAccess access) {
  int errnum = failure.outcome.errnum();
  if (failure.outcome.side() == TreeSide::Copy)
    access = FileAccess::Writing;
  if (errnum != ENOENT || failure.isGone())
    return fileError(errnum, failure.path, access);
  return Error(CocoaErrorDomain,
               access == FileAccess::Reading ? FileReadUnknownError : FileWriteUnknownError,
               userInfoWith(FilePathErrorKey, failure.path),
               std::make_shared<const Error>(errorFromErrno(errnum)));
}

FileManager &FileManager::real() {
  return lastingInstance<RealFileManager>();
}

} // namespace NS
