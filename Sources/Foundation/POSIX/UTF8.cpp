// UTF-8 by its definition, one sequence at a time.
#include "Foundation/POSIX/UTF8.h"

#include <cstddef>

namespace NS {
namespace {

struct Sequence {
  std::size_t length; // 0 for a byte that begins none
  unsigned char secondFirst, secondLast;
};

// The first byte decides the length and which second bytes are allowed.
Sequence sequenceFor(unsigned char first) {
  if (first < 0x80)
    return {1, 0, 0};
  if (first >= 0xc2 && first <= 0xdf)
    return {2, 0x80, 0xbf};
  if (first >= 0xe0 && first <= 0xef)
    return {3, static_cast<unsigned char>(first == 0xe0 ? 0xa0 : 0x80),
            static_cast<unsigned char>(first == 0xed ? 0x9f : 0xbf)};
  if (first >= 0xf0 && first <= 0xf4)
    return {4, static_cast<unsigned char>(first == 0xf0 ? 0x90 : 0x80),
            static_cast<unsigned char>(first == 0xf4 ? 0x8f : 0xbf)};
  return {0, 0, 0};
}

} // namespace

bool isValidUTF8(std::string_view text) {
  auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  for (std::size_t index = 0; index < text.size();) {
    Sequence sequence = sequenceFor(byteAt(index));
    if (sequence.length == 0 || sequence.length > text.size() - index)
      return false;
    if (sequence.length > 1 &&
        (byteAt(index + 1) < sequence.secondFirst || byteAt(index + 1) > sequence.secondLast))
      return false;
    for (std::size_t trail = 2; trail < sequence.length; ++trail)
      if ((byteAt(index + trail) & 0xc0) != 0x80)
        return false;
    index += sequence.length;
  }
  return true;
}

void appendUTF8(std::string &text, char32_t scalar) {
  auto append = [&](char32_t byte) { text += static_cast<char>(byte); };
  if (scalar < 0x80) {
    append(scalar);
  } else if (scalar < 0x800) {
    append(0xc0 | (scalar >> 6));
    append(0x80 | (scalar & 0x3f));
  } else if (scalar < 0x10000) {
    append(0xe0 | (scalar >> 12));
    append(0x80 | ((scalar >> 6) & 0x3f));
    append(0x80 | (scalar & 0x3f));
  } else {
    append(0xf0 | (scalar >> 18));
    append(0x80 | ((scalar >> 12) & 0x3f));
    append(0x80 | ((scalar >> 6) & 0x3f));
    append(0x80 | (scalar & 0x3f));
  }
}

} // namespace NS
