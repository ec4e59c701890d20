// Removal and moving in steps: try, unlock the item, try again.
#include "Additions/NSFileManager+FileModificationsAdditions.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Descriptors/FileHandle.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Trees/SecureRemoval.h"
#include "Protocol/Identity.h"

#include <cerrno>

namespace kw {
namespace {

constexpr std::uint32_t unlockMask = NS::UF_IMMUTABLE_FLAG | NS::SF_IMMUTABLE_FLAG;

void logLockedItem(const std::string &path, int errnum) {
  NS::Log("Failed to unset immutable flag for %@ with error: %d", path, errnum);
}

void unlockItem(const std::string &path) {
  if (NS::FileFlags::shared().clear(path, unlockMask) == -1)
    logLockedItem(path, errno);
}

bool isError(const std::optional<NS::Error> &error, NS::CocoaErrorCode code) {
  return error && error->code() == code;
}

NS::Error secureRemovalError(int result) {
  std::string text = NS::Bundle::mainBundle().localizedStringForKey(
      "ErrorDescRemoving_GenericError", "", "Errors");
  return NS::Error(kSecureRemoveErrorDomain, result,
                   NS::userInfoWith(NS::LocalizedDescriptionKey, std::move(text)));
}

bool isDirectoryAtPath(NS::FileManager &manager, const std::string &path) {
  bool isDirectory = false;
  return manager.fileExistsAtPath(path, isDirectory) && isDirectory;
}

// Logs the failed step of the switch move and passes its error out.
bool failStep(std::string_view format, const std::optional<NS::Error> &failure,
              NS::ErrorSlot error) {
  NS::Log(format, failure);
  if (failure)
    NS::storeError(error, *failure);
  return false;
}

} // namespace

void tryToUnlockFileIfNeeded(NS::FileManager &, const std::string &path, bool recursively) {
  unlockItem(path);
  if (!recursively)
    return;
  NS::FileFlags::shared().clearBeneath(path, unlockMask, logLockedItem);
}

bool removeFileAtPath(NS::FileManager &manager, const std::string &path, NS::ErrorSlot error) {
  std::optional<NS::Error> failure;
  if (manager.removeItemAtPath(path, &failure) || isError(failure, NS::FileNoSuchFileError))
    return true;
  if (isError(failure, NS::UserCancelledError)) {
    NS::storeError(error, *failure);
    return false;
  }
  // Locked items fail with a lack of permission. The text is the contract's (sic).
  if (!isError(failure, NS::FileWriteNoPermissionError))
    NS::Log("An error occured while removing file at path (%@): %@", path, failure);
  tryToUnlockFileIfNeeded(manager, NS::stringByDeletingLastPathComponent(path), false);
  tryToUnlockFileIfNeeded(manager, path, true);
  // One slot serves both attempts: callers learn of the first failure even when
  // the second attempt succeeds.
  bool removed = manager.removeItemAtPath(path, &failure);
  if (failure)
    NS::storeError(error, *failure);
  return removed;
}

bool securelyRemoveFileAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                              NS::ErrorSlot error) {
  if (!path) {
    NS::Log("Missing path. Treat as an error.");
    return false;
  }
  tryToUnlockFileIfNeeded(manager, *path, false);
  int result = NS::SecureRemoval::shared().removefile(*path, NS::REMOVEFILE_RECURSIVE_FLAG |
                                                                 NS::REMOVEFILE_SECURE_1_PASS_FLAG);
  if (result == 0)
    return true;
  bool isCancelled = errno == ECANCELED;
  NS::storeError(error, isCancelled ? NS::fileError(ECANCELED, *path, NS::FileAccess::Writing)
                                    : secureRemovalError(result));
  return false;
}

bool truncateFileAtPath(NS::FileManager &manager, const std::string &path) {
  bool isDirectory = false;
  if (!manager.fileExistsAtPath(path, isDirectory) || isDirectory)
    return false;
  try {
    auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(path);
    if (!handle)
      return false;
    handle->truncateFileAtOffset(0);
    handle->closeFile();
    return true;
  } catch (const NS::Exception &exception) {
    NS::Log("Failed to truncate file with exception: %@", exception);
    return false;
  }
}

bool removeContentsOfDirectoryAtPath(NS::FileManager &manager, const std::string &path) {
  std::optional<NS::Error> failure;
  auto children = manager.contentsOfDirectoryAtURL(NS::URL::fileURLWithPath(path),
                                                   NS::DirectoryEnumerationNone, &failure);
  if (!children) {
    NS::Log("Error: failed to get contents of directory %@ with error %@", path, failure);
    return false;
  }
  bool removedAll = true;
  for (const NS::URL &child : *children) {
    if (NS::Progress::current().isCancelled())
      return false;
    removedAll = removeFileAtPath(manager, child.path(), nullptr) && removedAll;
  }
  return removedAll;
}

bool advancedMoveItemAtPath(NS::FileManager &manager, const std::string &srcPath,
                            const std::optional<std::string> &dstPath, NS::ErrorSlot error) {
  std::string srcParent = NS::stringByDeletingLastPathComponent(srcPath);
  if (dstPath && srcParent == *dstPath) {
    NS::Log("Make no sense to move to the same folder. Treat as success.");
    return true;
  }
  std::string dstParent = dstPath ? NS::stringByDeletingLastPathComponent(*dstPath) : "";
  for (const std::string &path : {srcParent, srcPath, dstParent})
    tryToUnlockFileIfNeeded(manager, path, false);

  NS::URL srcURL = NS::URL::fileURLWithPath(srcPath);
  if (dstParent.empty())
    return manager.trashItemAtURL(srcURL, error);
  NS::URL dstParentURL = NS::URL::fileURLWithPath(dstParent);
  NS::URL dstURL = NS::URL::fileURLWithPath(*dstPath, true);
  if (!dstParentURL.checkResourceIsReachable(nullptr) &&
      !manager.createDirectoryAtURL(dstParentURL, true, error))
    return false;
  return manager.moveItemAtURL(srcURL, dstURL, error);
}

bool moveItemAtPath(NS::FileManager &, const std::string &srcPath, const std::string &dstPath,
                    bool createDstIntermediatePath, bool removeDstPath, NS::ErrorSlot error) {
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::optional<NS::Error> failure;
  if (createDstIntermediatePath) {
    std::string dstParent = NS::stringByDeletingLastPathComponent(dstPath);
    if (!isDirectoryAtPath(manager, dstParent))
      static_cast<void>(manager.createDirectoryAtPath(dstParent, true, &failure));
    // The slot decides, not the return value of the call.
    if (failure)
      return failStep("Creating directory: %@", failure, error);
  }
  if (removeDstPath && manager.fileExistsAtPath(dstPath)) {
    static_cast<void>(manager.removeItemAtPath(dstPath, &failure));
    if (failure)
      return failStep("Removing file: %@", failure, error);
  }
  if (manager.moveItemAtPath(srcPath, dstPath, &failure) && !failure)
    return true;
  return failStep("Moving file: %@", failure, error);
}

} // namespace kw
