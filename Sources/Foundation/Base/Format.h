// Formatting in the platform's notation, so that the fixed texts of the log
// appear unchanged in the source: "%@" takes any describable value, and "%d",
// "%i", "%s", "%lld" and their like take the next argument's text.
#pragma once

#include "Foundation/Base/Error.h"
#include "Foundation/Base/Exception.h"

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NS {

inline std::string describe(std::string_view text) {
  return std::string(text);
}
inline std::string describe(const std::string &text) {
  return text;
}
inline std::string describe(const char *text) {
  return text ? text : "(null)";
}
inline std::string describe(const Error &error) {
  return error.description();
}
inline std::string describe(const Exception &exception) {
  return exception.reason();
}
template <std::integral Integer> std::string describe(Integer value) {
  return std::to_string(value);
}
// An array as the platform prints one: parenthesised, one element a line.
std::string describe(const std::vector<std::string> &array);
// Nil describes itself as "(null)".
template <typename Value> std::string describe(const std::optional<Value> &value) {
  return value ? describe(*value) : std::string("(null)");
}

// Replaces each conversion of the format by the next argument; "%%" is a
// percent sign. A conversion without an argument stays unchanged.
std::string formatWithArguments(std::string_view format,
                                std::initializer_list<std::string> arguments);

template <typename... Arguments>
std::string stringWithFormat(std::string_view format, const Arguments &...arguments) {
  return formatWithArguments(format, {describe(arguments)...});
}

} // namespace NS
