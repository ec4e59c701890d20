// A library taken out of a colon-separated list: the library on the first
// line, the list after it.
#include "Additions/NSStringAdditions.h"
#include "Support/FuzzInput.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  auto [library, list] = kwtest::firstLineAndRest(kwtest::fuzzText(data, size));
  std::string once = kw::stringByRemovingSemicolonSeparatedString(list, library);
  kwtest::require(kw::stringByRemovingSemicolonSeparatedString(once, library) == once,
                  "removing twice equals removing once");
  kwtest::require(once.size() <= list.size(), "a list does not grow");
  auto pieces = NS::componentsSeparatedByString(once, ":", NS::StringSearch::Literal);
  bool isLeft = std::find(pieces.begin(), pieces.end(), library) != pieces.end();
  kwtest::require(!isLeft || once.empty(), "no piece equals the library");
  for (const std::string &piece : pieces)
    kwtest::require(kw::trimWhiteSpace(piece) == piece, "each piece is trimmed");
  return 0;
}
