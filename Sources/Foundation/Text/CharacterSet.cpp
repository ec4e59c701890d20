// Membership by the Unicode tables of ICU.
#include "Foundation/Text/CharacterSet.h"

#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <unicode/uchar.h>

namespace NS {
namespace {

bool isWhitespaceOrNewline(char32_t character) {
  if (character < 0x80)
    return character == ' ' || (character >= '\t' && character <= '\r');
  if (character == 0x85 || character == 0x200b)
    return true;
  return (U_GET_GC_MASK(static_cast<UChar32>(character)) & U_GC_Z_MASK) != 0;
}

} // namespace

CharacterSet CharacterSet::whitespaceAndNewlineCharacterSet() {
  return CharacterSet(Kind::WhitespaceAndNewline);
}

CharacterSet CharacterSet::decimalDigitCharacterSet() {
  return CharacterSet(Kind::DecimalDigit);
}

CharacterSet CharacterSet::characterSetWithCharactersInString(std::string_view characters) {
  std::u32string listed;
  for (std::size_t index = 0; index < characters.size();) {
    DecodedCharacter character = decodeCharacter(characters, index);
    if (character.wellFormed)
      listed += character.value;
    index += character.length;
  }
  std::sort(listed.begin(), listed.end());
  return CharacterSet(Kind::Listed, std::move(listed));
}

bool CharacterSet::characterIsMember(char32_t character) const {
  switch (kind_) {
  case Kind::WhitespaceAndNewline:
    return isWhitespaceOrNewline(character);
  case Kind::DecimalDigit:
    return u_charType(static_cast<UChar32>(character)) == U_DECIMAL_DIGIT_NUMBER;
  case Kind::Listed:
    break;
  }
  return std::binary_search(listed_.begin(), listed_.end(), character);
}

} // namespace NS
