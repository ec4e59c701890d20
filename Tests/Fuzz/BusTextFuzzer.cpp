// For any bytes of a path or a tool's output, the text sent must be one that
// every receiver accepts. Text that is valid already must stay unchanged.
#include "Protocol/Linux/BusText.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string text(reinterpret_cast<const char *>(data), size);
  std::string sent = NS::busText(text);
  if (sent.size() > 3 * text.size() || NS::busText(sent) != sent ||
      sent.find('\0') != std::string::npos)
    std::abort();
  return 0;
}
