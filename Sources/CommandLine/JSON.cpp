// Escaping and nothing else.
#include "CommandLine/JSON.h"

#include <cmath>
#include <fmt/format.h>

namespace kw {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool isContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The length of the well-formed sequence at the start, 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
  auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80)
    return 1;
  std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
    return 0;
  for (std::size_t index = 1; index < length; ++index)
    if (!isContinuation(text[index]))
      return 0;
  auto second = static_cast<unsigned char>(text[1]);
  bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  bool outside = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
  return overlong || outside ? 0 : length;
}

std::string escaped(char c) {
  switch (c) {
  case '"':
    return "\\\"";
  case '\\':
    return "\\\\";
  case '\n':
    return "\\n";
  case '\t':
    return "\\t";
  case '\r':
    return "\\r";
  default:
    return fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
  }
}

bool needsEscape(char c) {
  return c == '"' || c == '\\' || c == '\x7f' || (c >= 0 && c < 0x20);
}

} // namespace

std::string jsonString(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    std::size_t length = sequenceLength(text);
    if (length == 0)
      result += replacement;
    else if (length == 1 && needsEscape(text[0]))
      result += escaped(text[0]);
    else
      result += text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
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

JSONObject &JSONObject::add(std::string_view key, const std::vector<JSONObject> &values) {
  std::string array = "[";
  for (const JSONObject &value : values)
    array.append(array.size() > 1 ? "," : "").append(value.text());
  return addRaw(key, array + "]");
}

} // namespace kw
