// An expression of any bytes over a text of any bytes, an expression on the
// first line.
#include "Foundation/Text/RegularExpression.h"
#include "Support/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  auto [pattern, text] = kwtest::firstLineAndRest(kwtest::fuzzText(data, size));
  for (auto options : {NS::RegularExpressionNone, NS::RegularExpressionCaseInsensitive}) {
    auto expression = NS::RegularExpression::regularExpressionWithPattern(pattern, options);
    if (!expression)
      continue;
    auto match = expression->firstMatchInString(text);
    if (match)
      kwtest::require(match->location <= text.size() &&
                          match->length <= text.size() - match->location,
                      "a match lies inside the text");
  }
  return 0;
}
