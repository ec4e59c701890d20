// An error value: domain, code, user info and the error beneath it. Clients of
// libkeepwell see this class too, so it is in their namespace kw, not in NS.
//
// Values are immutable; copies may cross threads.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace kw {

// The codes of this domain are the platform's own numbers, such as 513 for a
// lack of permission.
inline constexpr std::string_view CocoaErrorDomain = "NSCocoaErrorDomain";
// The codes of this domain are those of errno.
inline constexpr std::string_view POSIXErrorDomain = "NSPOSIXErrorDomain";

inline constexpr std::string_view LocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view FilePathErrorKey = "NSFilePath";
inline constexpr std::string_view UnderlyingErrorKey = "NSUnderlyingError";

// The types of a user-info entry, besides the underlying error.
using UserInfoValue = std::variant<std::string, std::int64_t, std::uint64_t, double, bool>;
using UserInfo = std::map<std::string, UserInfoValue, std::less<>>;

class Error {
public:
  Error(std::string_view domain, std::int64_t code, UserInfo userInfo = {},
        std::shared_ptr<const Error> underlying = nullptr);

  const std::string &domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const UserInfo &userInfo() const { return userInfo_; }
  // The error of the layer below, null when there is none.
  const Error *underlyingError() const { return underlying_.get(); }

  // Returns the text under LocalizedDescriptionKey, else a sentence made from
  // the domain and the code. Never empty.
  std::string localizedDescription() const;
  // One line for the log: domain, code, description, path and cause.
  std::string description() const;

private:
  std::string domain_;
  std::int64_t code_;
  UserInfo userInfo_;
  std::shared_ptr<const Error> underlying_;
};

} // namespace kw
