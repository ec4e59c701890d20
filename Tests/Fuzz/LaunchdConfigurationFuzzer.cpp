// A library and a line, separated by the first line feed. The result is the
// line itself, nothing, or the rebuilt line, and the list never holds a removed
// library again.
#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Exception.h"
#include "Tools/KWLaunchdManager.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text;
  if (size > 0)
    text = {reinterpret_cast<const char *>(data), size};
  std::size_t end = text.find('\n');
  std::string_view library = text.substr(0, end);
  std::string_view line = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  std::optional<std::string> result;
  try {
    result = kw::KWLaunchdManager().removeLibrary(library, line);
  } catch (const NS::Exception &) { // the line does not name the variable
    return 0;
  }
  if (!result || *result == line)
    return 0;
  constexpr std::string_view prefix = "setenv DYLD_INSERT_LIBRARIES \"";
  if (!result->starts_with(prefix) || !result->ends_with('"'))
    std::abort();
  std::string list = result->substr(prefix.size(), result->size() - prefix.size() - 1);
  if (kw::stringByRemovingSemicolonSeparatedString(list, library) != list)
    std::abort();
  return 0;
}
