// Category URLAdditions: escaping of texts that become part of a URL.
//
// No state; may be called from any thread. Bytes that are no UTF-8 are escaped
// as they are.
#pragma once

#include "Foundation/Format.h"
#include "Foundation/PercentEscapes.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

// Everything escaped but letters, digits and "-_.~".
std::string stringByEncodingURLEscapes(std::string_view string);
// "+" read as a space, then the escapes replaced. Nothing when an escape is
// malformed or the escapes give no UTF-8.
std::optional<std::string> stringByDecodingURLEscapes(std::string_view string);
// The platform's legacy escapes, and "&" as "%26".
std::string kws_stringEncodedAsURL(std::string_view string);
// Every occurrence, equivalent spellings among them.
std::string stringByReplacingOccurrencesOfString(std::string_view string, std::string_view target,
                                                 std::string_view withString);

// "key=value" pairs joined by "&", in the order in which the dictionary, any
// range of pairs with describable values, gives them. Only the legacy escapes
// are made: an "&" or "=" of a key or a value stays.
template <typename Dictionary>
std::string URLParamsStringWithDictionary(const Dictionary &dictionary) {
  std::string parameters;
  const char *joiner = "";
  for (const auto &[key, value] : dictionary) {
    parameters += joiner;
    joiner = "&";
    parameters +=
        NS::stringWithFormat("%@=%@", NS::stringByAddingPercentEscapes(NS::describe(key)),
                             NS::stringByAddingPercentEscapes(NS::stringWithFormat("%@", value)));
  }
  return parameters;
}

} // namespace kw
