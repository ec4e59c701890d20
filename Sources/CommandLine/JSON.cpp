// Escapes strings and joins members; nothing is parsed.
#include "CommandLine/JSON.h"

#include "Additions/NSString+Hashing.h"
#include "CommandLine/Displayable.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>

namespace kw {
namespace {

std::string escaped(char32_t character) {
  switch (character) {
  case U'"':
    return "\\\"";
  case U'\\':
    return "\\\\";
  case U'\n':
    return "\\n";
  case U'\t':
    return "\\t";
  case U'\r':
    return "\\r";
  default:
    return fmt::format("\\u{:04x}", static_cast<unsigned>(character));
  }
}

bool needsEscape(char32_t character) {
  return character == U'"' || character == U'\\' || isHiddenCharacter(character);
}

std::string base64(std::string_view bytes) {
  return base64enc(bytes).value_or("");
}

} // namespace

std::string jsonString(std::string_view text) {
  std::string result = "\"";
  for (std::size_t index = 0; index < text.size();) {
    auto [value, length, wellFormed] = NS::decodeCharacter(text, index);
    if (!wellFormed)
      result += "\xEF\xBF\xBD";
    else if (needsEscape(value))
      result += escaped(value);
    else
      result += text.substr(index, length);
    index += length;
  }
  return result += '"';
}

JSONObject &JSONObject::addRaw(std::string_view key, const std::string &value) {
  if (!members_.empty())
    members_ += ',';
  members_.append(jsonString(key)).append(":").append(value);
  return *this;
}

JSONObject &JSONObject::add(std::string_view key, std::string_view text) {
  return addRaw(key, jsonString(text));
}

JSONObject &JSONObject::add(std::string_view key, const char *text) {
  return add(key, std::string_view(text));
}

JSONObject &JSONObject::add(std::string_view key, bool value) {
  return addRaw(key, value ? "true" : "false");
}

JSONObject &JSONObject::add(std::string_view key, std::int64_t value) {
  return addRaw(key, std::to_string(value));
}

JSONObject &JSONObject::add(std::string_view key, std::uint64_t value) {
  return addRaw(key, std::to_string(value));
}

JSONObject &JSONObject::add(std::string_view key, double value) {
  return addRaw(key, std::isfinite(value) ? fmt::format("{}", value) : "null");
}

JSONObject &JSONObject::add(std::string_view key, const JSONObject &value) {
  return addRaw(key, value.text());
}

JSONObject &JSONObject::add(std::string_view key, const std::vector<std::string> &texts) {
  std::string array = "[";
  for (const std::string &text : texts)
    array.append(array.size() > 1 ? "," : "").append(jsonString(text));
  return addRaw(key, array + "]");
}

JSONObject &JSONObject::addName(std::string_view key, std::string_view name) {
  add(key, name);
  return NS::isWellFormedUTF8(name) ? *this : add(std::string(key) + "Base64", base64(name));
}

JSONObject &JSONObject::addNames(std::string_view key, const std::vector<std::string> &names) {
  add(key, names);
  if (std::all_of(names.begin(), names.end(), NS::isWellFormedUTF8))
    return *this;
  std::vector<std::string> coded;
  std::transform(names.begin(), names.end(), std::back_inserter(coded), base64);
  return add(std::string(key) + "Base64", coded);
}

JSONObject &JSONObject::add(std::string_view key, const std::vector<JSONObject> &values) {
  std::string array = "[";
  for (const JSONObject &value : values)
    array.append(array.size() > 1 ? "," : "").append(value.text());
  return addRaw(key, array + "]");
}

} // namespace kw
