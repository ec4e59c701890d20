// Cuts between the characters of UTF-8.
#include "Foundation/Base/BoundedText.h"

namespace NS {
namespace {

// The most bytes of a character after its first one.
constexpr std::size_t mostContinuations = 3;

bool isContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

} // namespace

std::string boundedText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit)
    return std::string(text);
  std::size_t head = limit / 2;
  for (std::size_t step = 0; step < mostContinuations && head > 0 && isContinuation(text[head]);
       ++step)
    --head;
  std::size_t tail = text.size() - limit / 2;
  for (std::size_t step = 0;
       step < mostContinuations && tail < text.size() && isContinuation(text[tail]); ++step)
    ++tail;
  std::string bounded(text.substr(0, head));
  bounded += "[… " + std::to_string(tail - head) + " bytes …]";
  bounded += text.substr(tail);
  return bounded;
}

} // namespace NS
