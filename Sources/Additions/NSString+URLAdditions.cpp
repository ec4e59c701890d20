// Escapes for URLs, by the platform's older rules.
#include "Additions/NSString+URLAdditions.h"

#include "Foundation/Text/StringUtilities.h"

namespace kw {

std::string stringByEncodingURLEscapes(std::string_view string) {
  return NS::stringByAddingPercentEscapes(string, "!*'();:@&=+$,/?%#[]");
}

std::optional<std::string> stringByDecodingURLEscapes(std::string_view string) {
  return NS::stringByReplacingPercentEscapes(
      NS::stringByReplacingOccurrencesOfString(string, "+", " ", NS::StringSearch::Literal));
}

std::string kws_stringEncodedAsURL(std::string_view string) {
  return stringByReplacingOccurrencesOfString(NS::stringByAddingPercentEscapes(string), "&", "%26");
}

std::string stringByReplacingOccurrencesOfString(std::string_view string, std::string_view target,
                                                 std::string_view withString) {
  return NS::stringByReplacingOccurrencesOfString(string, target, withString);
}

} // namespace kw
