// The platform's errors: its names for the error value, its codes, and the one
// mapping from errno to them.
#pragma once

#include "Foundation/Base/ErrorValue.h"

#include <optional>

namespace NS {

using kw::CocoaErrorDomain;
using kw::Error;
using kw::FilePathErrorKey;
using kw::LocalizedDescriptionKey;
using kw::POSIXErrorDomain;
using kw::UnderlyingErrorKey;
using kw::UserInfo;
using kw::UserInfoValue;

// Codes of CocoaErrorDomain; the numbers are the platform's own.
enum CocoaErrorCode : std::int64_t {
  FileNoSuchFileError = 4,
  FileLockingError = 255,
  FileReadUnknownError = 256,
  FileReadNoPermissionError = 257,
  FileReadInvalidFileNameError = 258,
  FileReadCorruptFileError = 259,
  FileReadNoSuchFileError = 260,
  FileReadTooLargeError = 263,
  FileWriteUnknownError = 512,
  FileWriteNoPermissionError = 513,
  FileWriteInvalidFileNameError = 514,
  FileWriteFileExistsError = 516,
  FileWriteOutOfSpaceError = 640,
  FileWriteVolumeReadOnlyError = 642,
  UserCancelledError = 3072,
  FeatureUnsupportedError = 3328,
  PropertyListReadCorruptError = 3840,
  PropertyListWriteInvalidError = 3852,
};

// Makes a user info of one entry. Use it instead of a list in braces: when
// memory runs out within one, code by GCC 12 destroys entries that it has not
// made yet.
UserInfo userInfoWith(std::string_view key, UserInfoValue value);

// A caller's slot for an error; null when the caller wants none. On failure a
// function stores the error there. On success the slot keeps its value, unless
// the comment of the function says otherwise.
using ErrorSlot = std::optional<Error> *;

// Stores the error, unless the slot is null.
void storeError(ErrorSlot slot, const Error &error);

// Makes an error of POSIXErrorDomain with the system's text for the errno
// value.
Error errorFromErrno(int errnum);

// The direction of a failed call; several errno values map to one code for
// reading and another for writing.
enum class FileAccess { Reading, Writing };

// Makes the platform's error for a failed file operation: CocoaErrorDomain, the
// path in the user info and the POSIX error underneath. A missing item reads as
// FileReadNoSuchFileError (260) when reading and FileNoSuchFileError (4) when
// writing, as on the platform.
Error fileError(int errnum, std::string_view path, FileAccess access);

} // namespace NS
