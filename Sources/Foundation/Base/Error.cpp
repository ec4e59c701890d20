// The one mapping from errno to the platform's codes.
#include "Foundation/Base/Error.h"

#include <array>
#include <cerrno>
#include <system_error>

namespace NS {
namespace {

struct CodePair {
  int errnum;
  CocoaErrorCode reading;
  CocoaErrorCode writing;
};

constexpr std::array codes{
    CodePair{ENOENT, FileReadNoSuchFileError, FileNoSuchFileError},
    CodePair{EPERM, FileReadNoPermissionError, FileWriteNoPermissionError},
    CodePair{EACCES, FileReadNoPermissionError, FileWriteNoPermissionError},
    CodePair{ENAMETOOLONG, FileReadInvalidFileNameError, FileWriteInvalidFileNameError},
    CodePair{EINVAL, FileReadInvalidFileNameError, FileWriteInvalidFileNameError},
    CodePair{EFBIG, FileReadTooLargeError, FileWriteOutOfSpaceError},
    CodePair{EEXIST, FileReadUnknownError, FileWriteFileExistsError},
    CodePair{ENOSPC, FileReadUnknownError, FileWriteOutOfSpaceError},
    CodePair{EDQUOT, FileReadUnknownError, FileWriteOutOfSpaceError},
    CodePair{EROFS, FileReadNoPermissionError, FileWriteVolumeReadOnlyError},
    CodePair{ECANCELED, UserCancelledError, UserCancelledError},
    CodePair{ENOTSUP, FeatureUnsupportedError, FeatureUnsupportedError},
};

CocoaErrorCode cocoaCode(int errnum, FileAccess access) {
  for (const CodePair &pair : codes)
    if (pair.errnum == errnum)
      return access == FileAccess::Reading ? pair.reading : pair.writing;
  return access == FileAccess::Reading ? FileReadUnknownError : FileWriteUnknownError;
}

} // namespace

void storeError(ErrorSlot slot, const Error &error) {
  if (slot)
    *slot = error;
}

UserInfo userInfoWith(std::string_view key, UserInfoValue value) {
  UserInfo info;
  info.emplace(key, std::move(value));
  return info;
}

Error errorFromErrno(int errnum) {
  return Error(POSIXErrorDomain, errnum,
               userInfoWith(LocalizedDescriptionKey, std::generic_category().message(errnum)));
}

Error fileError(int errnum, std::string_view path, FileAccess access) {
  return Error(CocoaErrorDomain, cocoaCode(errnum, access),
               userInfoWith(FilePathErrorKey, std::string(path)),
               std::make_shared<const Error>(errorFromErrno(errnum)));
}

} // namespace NS
