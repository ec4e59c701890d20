// Each list that the binary reader accepts must come back equal from its XML
// form.
#include "PropertyListRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  // The header is the reader's to check, not the fuzzer's to guess.
  std::string list("bplist00");
  if (size > 0)
    list.append(reinterpret_cast<const char *>(data), size);
  kwtest::checkRoundTrip(list);
  return 0;
}
