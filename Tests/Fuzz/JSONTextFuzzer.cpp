// Any bytes as a JSON string: one that every reader accepts.
#include "CommandLine/JSON.h"
#include "Foundation/Text/Unicode.h"
#include "Support/FuzzInput.h"

#include <string>

namespace {

// Tells whether an escape of JSON begins at the place, and moves past it.
bool passEscape(std::string_view text, std::size_t &at) {
  if (at + 1 >= text.size())
    return false;
  char kind = text[at + 1];
  if (kind == 'u') {
    std::string_view digits = text.substr(at + 2, 4);
    at += 6;
    return digits.size() == 4 &&
           digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
  }
  at += 2;
  return std::string_view("\"\\/bfnrt").find(kind) != std::string_view::npos;
}

bool isString(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"')
    return false;
  text = text.substr(1, text.size() - 2);
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '\\') {
      if (!passEscape(text, at))
        return false;
      continue;
    }
    if (text[at] == '"' || static_cast<unsigned char>(text[at]) < 0x20)
      return false;
    ++at;
  }
  return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text = kwtest::fuzzText(data, size);
  std::string json = kw::jsonString(text);
  kwtest::require(isString(json), "the text is a JSON string");
  kwtest::require(NS::isWellFormedUTF8(json), "the string is UTF-8");
  std::string object = kw::JSONObject().add(text, text).text();
  kwtest::require(object == "{" + json + ":" + json + "}" ||
                      object == "{" + json + ": " + json + "}",
                  "an object holds its key and its value");
  return 0;
}
