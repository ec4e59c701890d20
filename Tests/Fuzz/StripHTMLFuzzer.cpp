// Tags out of any bytes.
#include "Additions/NSStringAdditions.h"
#include "Support/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text = kwtest::fuzzText(data, size);
  std::string stripped = kw::stripHTML(text);
  kwtest::require(stripped.size() <= text.size(), "nothing grows");
  kwtest::require(stripped.find_first_of("<>") == std::string::npos, "no bracket is left");
  if (text.find_first_of("<>") == std::string_view::npos)
    kwtest::require(stripped == text, "a text without brackets stays");
  kwtest::require(stripped.starts_with(kw::stripHTML(text.substr(0, size / 2))),
                  "what follows changes nothing of what came before");
  return 0;
}
