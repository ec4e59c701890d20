// An error value: domain, code, user info and the error beneath it, with the
// platform's domains and codes, and the one mapping from errno to them.
//
// Values are immutable once made and may be copied between threads.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace NS {

inline constexpr std::string_view CocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view POSIXErrorDomain = "NSPOSIXErrorDomain";

inline constexpr std::string_view LocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view FilePathErrorKey = "NSFilePath";
inline constexpr std::string_view UnderlyingErrorKey = "NSUnderlyingError";

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

// What a user-info entry can hold besides the underlying error.
using UserInfoValue = std::variant<std::string, std::int64_t, std::uint64_t, double, bool>;
using UserInfo = std::map<std::string, UserInfoValue, std::less<>>;
// One entry. Rather than a list in braces: should memory run out within one,
// GCC 12 takes down entries that it has not made yet.
UserInfo userInfoWith(std::string_view key, UserInfoValue value);

class Error {
public:
  Error(std::string_view domain, std::int64_t code, UserInfo userInfo = {},
        std::shared_ptr<const Error> underlying = nullptr);

  const std::string &domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const UserInfo &userInfo() const { return userInfo_; }
  // The error of the layer below, null when there is none.
  const Error *underlyingError() const { return underlying_.get(); }

  // The text under LocalizedDescriptionKey, else a sentence made from the
  // domain and the code. Never empty.
  std::string localizedDescription() const;
  // One line for the log: domain, code, description, path and cause.
  std::string description() const;

private:
  std::string domain_;
  std::int64_t code_;
  UserInfo userInfo_;
  std::shared_ptr<const Error> underlying_;
};

// Where a caller receives an error: null when it wants none. A function
// writes only on failure unless its own comment says otherwise; what it does
// not write keeps its value.
using ErrorSlot = std::optional<Error> *;

void storeError(ErrorSlot slot, const Error &error);

// An error of POSIXErrorDomain with the system's text for the errno value.
Error errorFromErrno(int errnum);

// Which way a failed call meant to go; several errno values map to one code
// for reading and another for writing.
enum class FileAccess { Reading, Writing };

// The platform's error for a failed file operation: CocoaErrorDomain, the
// path in the user info and the POSIX error underneath. A missing item reads
// as FileReadNoSuchFileError (260) when reading and FileNoSuchFileError (4)
// when writing, as the platform has it.
Error fileError(int errnum, std::string_view path, FileAccess access);

} // namespace NS
