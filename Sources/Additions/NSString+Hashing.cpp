// Texts of digests, and the platform's Base64 transforms.
#include "Additions/NSString+Hashing.h"

#include "Foundation/Text/MessageDigest.h"

namespace kw {

std::string md5Hash(std::string_view string) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t byte : NS::messageDigestMD5(string)) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::optional<std::string> base64helper(std::string_view data, NS::Transform *transform) {
  if (!transform || !transform->setAttribute(NS::TransformInputAttributeName, data))
    return std::nullopt;
  return transform->execute();
}

std::optional<std::string> base64enc(std::string_view data) {
  return base64helper(data, NS::Transform::encodeTransform(NS::Base64Encoding).get());
}

std::optional<std::string> base64dec(std::string_view string) {
  return base64helper(string, NS::Transform::decodeTransform(NS::Base64Encoding).get());
}

} // namespace kw
