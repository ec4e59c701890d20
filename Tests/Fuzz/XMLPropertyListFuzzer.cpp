// Each list that the XML reader accepts must come back equal from its written
// form.
#include "PropertyListRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  kwtest::checkRoundTrip(size > 0 ? std::string_view(reinterpret_cast<const char *>(data), size)
                                  : std::string_view());
  return 0;
}
