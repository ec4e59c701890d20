// Error values and their descriptions.
#include "Foundation/Base/ErrorValue.h"

#include <type_traits>
#include <utility>

namespace kw {
namespace {

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

} // namespace kw
