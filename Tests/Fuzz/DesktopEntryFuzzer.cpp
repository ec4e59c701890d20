// Any text reads as an entry, and the parts of its command line are never
// longer than the text.
#include "Foundation/Desktop/Linux/DesktopEntry.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text;
  if (size > 0)
    text = {reinterpret_cast<const char *>(data), size};
  auto check = [&](const std::optional<std::vector<std::string>> &arguments) {
    std::size_t length = 0;
    if (arguments)
      for (const std::string &argument : *arguments)
        length += argument.size();
    if (length > size)
      std::abort();
  };
  auto entry = NS::desktopEntryFromText(text);
  if (entry.exec)
    check(NS::argumentsOfExec(*entry.exec));
  check(NS::argumentsOfExec(text));
  return 0;
}
