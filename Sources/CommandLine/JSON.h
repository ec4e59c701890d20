// Just enough of JSON to print one object on one line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

// The text as a JSON string with its quotes. Bytes of invalid UTF-8 become
// U+FFFD; characters that act on a terminal are escaped.
std::string jsonString(std::string_view text);

// An object whose keys come in the order in which they were added.
class JSONObject {
public:
  JSONObject &add(std::string_view key, std::string_view text);
  JSONObject &add(std::string_view key, const char *text);
  JSONObject &add(std::string_view key, bool value);
  JSONObject &add(std::string_view key, std::int64_t value);
  JSONObject &add(std::string_view key, std::uint64_t value);
  JSONObject &add(std::string_view key, double value);
  JSONObject &add(std::string_view key, const JSONObject &value);
  JSONObject &add(std::string_view key, const std::vector<std::string> &texts);
  JSONObject &add(std::string_view key, const std::vector<JSONObject> &values);
  // Names of files may be invalid UTF-8. Then a second member, whose key ends
  // in "Base64", has their bytes.
  JSONObject &addName(std::string_view key, std::string_view name);
  JSONObject &addNames(std::string_view key, const std::vector<std::string> &names);

  std::string text() const { return "{" + members_ + "}"; }

private:
  JSONObject &addRaw(std::string_view key, const std::string &value);

  std::string members_;
};

} // namespace kw
