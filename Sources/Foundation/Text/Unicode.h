// UTF-8 from untrusted sources: strings should be UTF-8 but may hold any bytes,
// and the functions lose none of them and read past none.
//
// An ill-formed byte counts as one character and as one UTF-16 unit. All
// functions are pure, and any thread may call them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NS {

// One character of a string, or one byte that belongs to none.
struct DecodedCharacter {
  char32_t value;     // the code point; the byte itself when ill-formed
  std::size_t length; // in bytes, at least 1
  bool wellFormed;
};

// The character that begins at the index, which must lie inside the text.
DecodedCharacter decodeCharacter(std::string_view text, std::size_t index);
// The character that ends before the index, which must be greater than 0 and
// at most the text's size.
DecodedCharacter decodePreviousCharacter(std::string_view text, std::size_t index);

bool isASCII(std::string_view text);
inline char lowercaseASCII(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
bool isWellFormedUTF8(std::string_view text);

// Appends the UTF-8 form of a code point up to U+10FFFF.
void appendCharacter(std::string &text, char32_t character);

// Convert to UTF-16 and back without loss: an ill-formed byte becomes a lone
// low surrogate of 0xDC80 to 0xDCFF, which no well-formed text yields. Other
// lone surrogates come back as the replacement character.
std::u16string utf16FromBytes(std::string_view text);
std::string bytesFromUTF16(std::u16string_view units);

// The length in UTF-16 units, by which the platform measures strings.
std::size_t utf16Length(std::string_view text);

} // namespace NS
