// Finds the bytes that are not valid text.
#include "Protocol/Linux/BusText.h"

#include <algorithm>
#include <cstdint>

namespace NS {
namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

// The length of the well-formed sequence at the start of the text, 0 if none.
std::size_t sequenceLength(std::string_view text) {
  auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  unsigned char lead = byte(0);
  if (lead < 0x80)
    return lead == 0 ? 0 : 1;
  std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
    return 0;
  std::uint32_t point = lead & (0x7Fu >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0) != 0x80)
      return 0;
    point = point << 6 | (byte(index) & 0x3Fu);
  }
  constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  bool noncharacter = (point >= 0xFDD0 && point <= 0xFDEF) || (point & 0xFFFE) == 0xFFFE;
  if (point < smallest[length] || point > 0x10FFFF || surrogate || noncharacter)
    return 0;
  return length;
}

// Calls back for each stretch of valid text, and with an empty one for each
// invalid byte.
template <typename Receiver> void forEachStretch(std::string_view text, Receiver receiver) {
  while (!text.empty()) {
    std::size_t good = 0;
    while (good < text.size()) {
      std::size_t length = sequenceLength(text.substr(good));
      if (length == 0)
        break;
      good += length;
    }
    if (good > 0)
      receiver(text.substr(0, good));
    text.remove_prefix(good);
    if (!text.empty()) {
      receiver(std::string_view());
      text.remove_prefix(1);
    }
  }
}

} // namespace

bool isBusText(std::string_view text) {
  bool good = true;
  forEachStretch(text, [&](std::string_view stretch) { good = good && !stretch.empty(); });
  return good;
}

std::size_t busTextLength(std::string_view text) {
  std::size_t length = 0;
  forEachStretch(text, [&](std::string_view stretch) {
    length += stretch.empty() ? replacementCharacter.size() : stretch.size();
  });
  return length;
}

void writeBusText(std::string_view text, char *target) {
  forEachStretch(text, [&](std::string_view stretch) {
    std::string_view part = stretch.empty() ? replacementCharacter : stretch;
    part.copy(target, part.size());
    target += part.size();
  });
}

std::string busText(std::string_view text) {
  std::string result(busTextLength(text), '\0');
  writeBusText(text, result.data());
  return result;
}

} // namespace NS
