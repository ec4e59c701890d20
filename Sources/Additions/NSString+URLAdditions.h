// Category URLAdditions: escaping of text that becomes part of a URL.
//
// No state; any thread may call it. Bytes of invalid UTF-8 are escaped one by
// one.
#pragma once

#include "Foundation/Base/Format.h"
#include "Foundation/Text/PercentEscapes.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

// Escapes all characters but letters, digits and "-_.~".
std::string stringByEncodingURLEscapes(std::string_view string);
// Reads "+" as a space, then replaces the escapes. Empty when an escape is
// malformed or the escapes give invalid UTF-8.
std::optional<std::string> stringByDecodingURLEscapes(std::string_view string);
// Makes the platform's legacy escapes, and "&" into "%26".
std::string kws_stringEncodedAsURL(std::string_view string);
// Replaces every occurrence, equivalent spellings included.
std::string stringByReplacingOccurrencesOfString(std::string_view string, std::string_view target,
                                                 std::string_view withString);

// Joins "key=value" pairs by "&", in the order of the dictionary, which is any
// range of pairs with describable values. Makes only the legacy escapes: an "&"
// or "=" of a key or a value stays.
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
