// Error values and the one mapping from errno to the platform's codes.
#include "Foundation/Error.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <type_traits>

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

std::string describeValue(const UserInfoValue &value) {
  return std::visit(
      [](const auto &held) -> std::string {
        if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::string>)
          return held;
        else
          return std::to_string(held);
      },
      value);
}

} // namespace

Error::Error(std::string_view domain, std::int64_t code, UserInfo userInfo,
             std::shared_ptr<const Error> underlying)
    : domain_(domain), code_(code), userInfo_(std::move(userInfo)),
      underlying_(std::move(underlying)) {}

std::string Error::localizedDescription() const {
  auto found = userInfo_.find(LocalizedDescriptionKey);
  if (found != userInfo_.end())
    if (const auto *text = std::get_if<std::string>(&found->second); text && !text->empty())
      return *text;
  return "The operation couldn’t be completed. (" + domain_ + " error " + std::to_string(code_) +
         ".)";
}

std::string Error::description() const {
  std::string text = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
                     localizedDescription() + "\"";
  if (userInfo_.empty() && !underlying_)
    return text;
  text += " UserInfo={";
  const char *separator = "";
  for (const auto &[key, value] : userInfo_) {
    text += separator + key + "=" + describeValue(value);
    separator = ", ";
  }
  if (underlying_)
    text += separator + std::string(UnderlyingErrorKey) + "={" + underlying_->description() + "}";
  return text + "}";
}

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
