// The formatter behind the log and every text made in the platform's notation.
#include "Foundation/Base/Format.h"

#include <algorithm>
#include <cctype>

namespace NS {
namespace {

constexpr std::string_view conversions = "@dDiuUxXoOfFeEgGcCsSpaA";
constexpr std::string_view modifiers = "0123456789.-+ #'hlqLztj$*";

// The platform writes an element bare when it is one plain word.
bool isPlainWord(const std::string &text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '$' || c == '/' || c == ':' || c == '.';
  });
}

std::string quoted(const std::string &text) {
  if (isPlainWord(text))
    return text;
  std::string result = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\')
      result += '\\';
    result += c;
  }
  return result + "\"";
}

} // namespace

std::string describe(const std::vector<std::string> &array) {
  std::string text = "(\n";
  for (std::size_t index = 0; index < array.size(); ++index)
    text += "    " + quoted(array[index]) + (index + 1 < array.size() ? ",\n" : "\n");
  return text + ")";
}

std::string formatWithArguments(std::string_view format,
                                std::initializer_list<std::string> arguments) {
  std::string text;
  auto next = arguments.begin();
  for (std::size_t index = 0; index < format.size(); ++index) {
    if (format[index] != '%') {
      text += format[index];
      continue;
    }
    if (format.substr(index, 2) == "%%") {
      text += '%';
      ++index;
      continue;
    }
    std::size_t end = format.find_first_not_of(modifiers, index + 1);
    bool complete =
        end != std::string_view::npos && conversions.find(format[end]) != std::string_view::npos;
    if (!complete || next == arguments.end()) {
      text += '%';
      continue;
    }
    text += *next++;
    index = end;
  }
  return text;
}

} // namespace NS
