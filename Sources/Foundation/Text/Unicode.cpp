// A strict UTF-8 decoder: no overlong forms, no surrogates, nothing above
// U+10FFFF.
#include "Foundation/Text/Unicode.h"

#include <algorithm>

namespace NS {
namespace {

constexpr char32_t replacementCharacter = 0xfffd;
constexpr char16_t escapedByte = 0xdc00;

// The meaning of a lead byte: the length of the sequence, its first bits, and
// the least code point that needs that length.
struct Lead {
  std::size_t length;
  char32_t bits;
  char32_t least;
};

Lead leadOf(unsigned char byte) {
  if (byte < 0x80)
    return {1, byte, 0};
  if (byte >= 0xc2 && byte < 0xe0)
    return {2, byte & 0x1fu, 0x80};
  if (byte >= 0xe0 && byte < 0xf0)
    return {3, byte & 0x0fu, 0x800};
  if (byte >= 0xf0 && byte < 0xf5)
    return {4, byte & 0x07u, 0x10000};
  return {0, 0, 0};
}

bool isHighSurrogate(char16_t unit) {
  return unit >= 0xd800 && unit < 0xdc00;
}
bool isLowSurrogate(char16_t unit) {
  return unit >= 0xdc00 && unit < 0xe000;
}

} // namespace

DecodedCharacter decodeCharacter(std::string_view text, std::size_t index) {
  auto first = static_cast<unsigned char>(text[index]);
  DecodedCharacter illFormed{first, 1, false};
  Lead lead = leadOf(first);
  if (lead.length == 0 || text.size() - index < lead.length)
    return illFormed;
  char32_t value = lead.bits;
  for (std::size_t offset = 1; offset < lead.length; ++offset) {
    auto byte = static_cast<unsigned char>(text[index + offset]);
    if ((byte & 0xc0) != 0x80)
      return illFormed;
    value = value << 6 | (byte & 0x3fu);
  }
  bool surrogate = value >= 0xd800 && value < 0xe000;
  if (value < lead.least || value > 0x10ffff || surrogate)
    return illFormed;
  return {value, lead.length, true};
}

DecodedCharacter decodePreviousCharacter(std::string_view text, std::size_t index) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, index); ++length) {
    DecodedCharacter character = decodeCharacter(text.substr(0, index), index - length);
    if (character.wellFormed && character.length == length)
      return character;
  }
  return {static_cast<unsigned char>(text[index - 1]), 1, false};
}

bool isASCII(std::string_view text) {
  unsigned bits = 0; // all of them, since the compiler turns that into few steps
  for (char c : text)
    bits |= static_cast<unsigned char>(c);
  return bits < 0x80;
}

bool isWellFormedUTF8(std::string_view text) {
  for (std::size_t index = 0; index < text.size();) {
    DecodedCharacter character = decodeCharacter(text, index);
    if (!character.wellFormed)
      return false;
    index += character.length;
  }
  return true;
}

void appendCharacter(std::string &text, char32_t character) {
  auto append = [&](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xc0 | character >> 6);
    append(0x80 | (character & 0x3f));
  } else if (character < 0x10000) {
    append(0xe0 | character >> 12);
    append(0x80 | (character >> 6 & 0x3f));
    append(0x80 | (character & 0x3f));
  } else {
    append(0xf0 | character >> 18);
    append(0x80 | (character >> 12 & 0x3f));
    append(0x80 | (character >> 6 & 0x3f));
    append(0x80 | (character & 0x3f));
  }
}

std::u16string utf16FromBytes(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (std::size_t index = 0; index < text.size();) {
    DecodedCharacter character = decodeCharacter(text, index);
    index += character.length;
    if (!character.wellFormed) {
      units += static_cast<char16_t>(escapedByte + character.value);
    } else if (character.value < 0x10000) {
      units += static_cast<char16_t>(character.value);
    } else {
      char32_t offset = character.value - 0x10000;
      units += static_cast<char16_t>(0xd800 + (offset >> 10));
      units += static_cast<char16_t>(0xdc00 + (offset & 0x3ff));
    }
  }
  return units;
}

std::string bytesFromUTF16(std::u16string_view units) {
  std::string text;
  text.reserve(units.size());
  for (std::size_t index = 0; index < units.size(); ++index) {
    char16_t unit = units[index];
    if (isHighSurrogate(unit) && index + 1 < units.size() && isLowSurrogate(units[index + 1])) {
      char32_t high = static_cast<char32_t>(unit - 0xd800) << 10;
      appendCharacter(text, 0x10000 + high + static_cast<char32_t>(units[++index] - 0xdc00));
    } else if (unit >= escapedByte + 0x80 && unit <= escapedByte + 0xff) {
      text += static_cast<char>(static_cast<unsigned char>(unit - escapedByte));
    } else {
      bool surrogate = isHighSurrogate(unit) || isLowSurrogate(unit);
      appendCharacter(text, surrogate ? replacementCharacter : unit);
    }
  }
  return text;
}

std::size_t utf16Length(std::string_view text) {
  std::size_t length = 0;
  for (std::size_t index = 0; index < text.size();) {
    DecodedCharacter character = decodeCharacter(text, index);
    length += character.wellFormed && character.value >= 0x10000 ? 2 : 1;
    index += character.length;
  }
  return length;
}

} // namespace NS
