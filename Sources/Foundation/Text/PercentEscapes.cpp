// Escapes byte by byte, and unescapes run by run, since one character may take
// several escapes.
#include "Foundation/Text/PercentEscapes.h"

#include "Foundation/Text/Unicode.h"

namespace NS {
namespace {

bool isLegalInURL(unsigned char byte) {
  if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9'))
    return true;
  return std::string_view("-_.~!*'();:@&=+$,/?").find(static_cast<char>(byte)) !=
         std::string_view::npos;
}

int hexadecimalValue(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// Reads the run of escapes that begins at the index and moves the index past
// it. False when an escape is incomplete.
bool readEscapes(std::string_view text, std::size_t &index, std::string &bytes) {
  while (index < text.size() && text[index] == '%') {
    if (text.size() - index < 3)
      return false;
    int high = hexadecimalValue(text[index + 1]);
    int low = hexadecimalValue(text[index + 2]);
    if (high < 0 || low < 0)
      return false;
    bytes += static_cast<char>(static_cast<unsigned char>(high << 4 | low));
    index += 3;
  }
  return true;
}

} // namespace

std::string stringByAddingPercentEscapes(std::string_view text, std::string_view alwaysEscaped) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (isLegalInURL(byte) && alwaysEscaped.find(c) == std::string_view::npos) {
      escaped += c;
    } else {
      escaped += '%';
      escaped += digits[byte >> 4];
      escaped += digits[byte & 15];
    }
  }
  return escaped;
}

std::optional<std::string> stringByReplacingPercentEscapes(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t index = 0; index < text.size();) {
    if (text[index] != '%') {
      plain += text[index++];
      continue;
    }
    std::string bytes;
    if (!readEscapes(text, index, bytes) || !isWellFormedUTF8(bytes))
      return std::nullopt;
    plain += bytes;
  }
  return plain;
}

} // namespace NS
