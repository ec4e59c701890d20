// Base64 by the standard alphabet.
#include "Foundation/Text/Internal/Base64.h"

#include <algorithm>
#include <cstdint>

namespace NS {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned groupDigits = 4;

std::uint32_t digitValue(char c) {
  if (c >= 'A' && c <= 'Z')
    return static_cast<std::uint32_t>(c - 'A');
  if (c >= 'a' && c <= 'z')
    return static_cast<std::uint32_t>(c - 'a' + 26);
  if (c >= '0' && c <= '9')
    return static_cast<std::uint32_t>(c - '0' + 52);
  return c == '+' ? 62 : c == '/' ? 63 : UINT32_MAX;
}

std::uint32_t byteAt(std::string_view bytes, std::size_t index) {
  return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
}

// The bytes of a group whose digits are its lowest 6 * digits bits.
void appendGroup(std::string &bytes, std::uint32_t group, unsigned digits) {
  group <<= 6 * (groupDigits - digits);
  for (unsigned byte = 0; byte + 1 < digits; ++byte)
    bytes += static_cast<char>(group >> (16 - 8 * byte) & 0xff);
}

} // namespace

std::string base64FromBytes(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * groupDigits);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group =
        byteAt(bytes, at) << 16 | byteAt(bytes, at + 1) << 8 | byteAt(bytes, at + 2);
    std::size_t digits = std::min<std::size_t>(bytes.size() - at + 1, groupDigits);
    for (std::size_t digit = 0; digit < groupDigits; ++digit)
      text += digit < digits ? alphabet[group >> (18 - 6 * digit) & 0x3f] : '=';
  }
  return text;
}

std::optional<std::string> bytesFromBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / groupDigits * 3);
  std::uint32_t group = 0;
  unsigned digits = 0, padding = 0;
  for (char c : text) {
    if (c == '=') {
      if (digits < 2)
        return std::nullopt;
      ++padding;
      continue;
    }
    std::uint32_t value = digitValue(c);
    if (padding > 0 || value == UINT32_MAX)
      return std::nullopt;
    group = group << 6 | value;
    if (++digits < groupDigits)
      continue;
    appendGroup(bytes, group, digits);
    group = digits = 0;
  }
  if (digits > 0 && digits + padding != groupDigits)
    return std::nullopt;
  appendGroup(bytes, group, digits);
  return bytes;
}

} // namespace NS
