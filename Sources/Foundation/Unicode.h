// UTF-8 as it comes from strangers: strings are meant to be UTF-8 but may hold
// any bytes, and none of them may be lost or read past.
//
// An ill-formed byte counts as one character and as one UTF-16 unit. All
// functions are pure and may run on any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NS {

// One character of a string, or one byte that is part of none.
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
bool isWellFormedUTF8(std::string_view text);

void appendCharacter(std::string &text, char32_t character);

// To UTF-16 and back without loss: an ill-formed byte becomes a lone low
// surrogate of 0xDC80 to 0xDCFF, which nothing well-formed yields. Other lone
// surrogates come back as the replacement character.
std::u16string utf16FromBytes(std::string_view text);
std::string bytesFromUTF16(std::u16string_view units);

// The length in UTF-16 units, which is what the platform calls a string's
// length.
std::size_t utf16Length(std::string_view text);

} // namespace NS
