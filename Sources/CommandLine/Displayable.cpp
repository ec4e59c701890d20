// Escapes text character by character.
#include "CommandLine/Displayable.h"

#include "Foundation/Text/Unicode.h"

#include <fmt/format.h>

namespace kw {

bool isHiddenCharacter(char32_t character) {
  bool isControl = character < 0x20 || (character >= 0x7f && character < 0xa0);
  bool turnsText = character == 0x61c || character == 0x200e || character == 0x200f ||
                   (character >= 0x202a && character <= 0x202e) ||
                   (character >= 0x2066 && character <= 0x2069);
  bool endsLine = character == 0x2028 || character == 0x2029;
  return isControl || turnsText || endsLine;
}

std::string displayable(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size();) {
    auto [value, length, wellFormed] = NS::decodeCharacter(text, index);
    if (value == U'\\')
      result += "\\\\";
    else if (!wellFormed || (isHiddenCharacter(value) && value < 0x80))
      result += fmt::format("\\x{:02x}", static_cast<unsigned>(value));
    else if (isHiddenCharacter(value))
      result += fmt::format("\\u{:04x}", static_cast<unsigned>(value));
    else
      result += text.substr(index, length);
    index += length;
  }
  return result;
}

std::string endOf(const std::string &text, std::size_t room) {
  if (text.size() <= room)
    return text;
  std::size_t start = text.size() - room + 3;
  while (start < text.size() && !NS::decodeCharacter(text, start).wellFormed)
    ++start;
  return fmt::format("...{}", text.substr(start));
}

} // namespace kw
