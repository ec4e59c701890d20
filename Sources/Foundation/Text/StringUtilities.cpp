// The string utilities that need no tables of Unicode, only the search and the
// decoder of characters.
#include "Foundation/Text/StringUtilities.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Text/Unicode.h"

namespace NS {

std::optional<ByteRange> rangeOfCharacterFromSet(std::string_view text, const CharacterSet &set) {
  for (std::size_t index = 0; index < text.size();) {
    DecodedCharacter character = decodeCharacter(text, index);
    if (character.wellFormed && set.characterIsMember(character.value))
      return ByteRange{index, character.length};
    index += character.length;
  }
  return std::nullopt;
}

std::string stringByTrimmingCharactersInSet(std::string_view text, const CharacterSet &set) {
  auto isMember = [&](const DecodedCharacter &character) {
    return character.wellFormed && set.characterIsMember(character.value);
  };
  while (!text.empty()) {
    DecodedCharacter first = decodeCharacter(text, 0);
    if (!isMember(first))
      break;
    text.remove_prefix(first.length);
  }
  while (!text.empty()) {
    DecodedCharacter last = decodePreviousCharacter(text, text.size());
    if (!isMember(last))
      break;
    text.remove_suffix(last.length);
  }
  return std::string(text);
}

std::vector<std::string> componentsSeparatedByString(std::string_view text,
                                                     std::string_view separator,
                                                     StringSearch search) {
  std::vector<std::string> components;
  std::size_t start = 0;
  for (ByteRange range : rangesOfString(text, separator, search)) {
    components.emplace_back(text.substr(start, range.location - start));
    start = range.location + range.length;
  }
  components.emplace_back(text.substr(start));
  return components;
}

std::string componentsJoinedByString(const std::vector<std::string> &components,
                                     std::string_view separator) {
  std::string joined;
  for (std::size_t index = 0; index < components.size(); ++index) {
    if (index > 0)
      joined += separator;
    joined += components[index];
  }
  return joined;
}

std::string stringByReplacingOccurrencesOfString(std::string_view text, std::string_view target,
                                                 std::string_view replacement,
                                                 StringSearch search) {
  std::string replaced;
  std::size_t start = 0;
  for (ByteRange range : rangesOfString(text, target, search)) {
    replaced += text.substr(start, range.location - start);
    replaced += replacement;
    start = range.location + range.length;
  }
  replaced += text.substr(start);
  return replaced;
}

std::string substringWithRange(std::string_view text, Range range) {
  std::string part;
  std::size_t unit = 0; // the beginning of the character at the index
  std::size_t index = 0;
  auto isInside = [&](std::size_t position) {
    return position >= range.location && position - range.location < range.length;
  };
  while (index < text.size()) {
    DecodedCharacter character = decodeCharacter(text, index);
    bool isPair = character.wellFormed && character.value >= 0x10000;
    bool first = isInside(unit);
    if (isPair && first != isInside(unit + 1))
      appendCharacter(part, 0xfffd);
    else if (first)
      part += text.substr(index, character.length);
    index += character.length;
    unit += isPair ? 2 : 1;
  }
  if (range.location > unit || range.length > unit - range.location)
    throw Exception(RangeException, "Range or index out of bounds");
  return part;
}

} // namespace NS
