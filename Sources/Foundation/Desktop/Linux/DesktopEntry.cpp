// Both layers of a desktop entry's command line: first the escapes of every
// string value, then the quoting of arguments.
#include "Foundation/Desktop/Linux/DesktopEntry.h"

#include <utility>

namespace NS {
namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos
             ? std::string_view()
             : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// An unknown escape keeps its backslash, for the quoting beneath.
std::string unescapedValue(std::string_view value) {
  std::string text;
  for (std::size_t index = 0; index < value.size(); ++index) {
    char next = value[index] == '\\' && index + 1 < value.size() ? value[index + 1] : '\0';
    std::size_t escape = std::string_view("sntr\\").find(next);
    if (next == '\0' || escape == std::string_view::npos) {
      text += value[index];
      continue;
    }
    text += " \n\t\r\\"[escape];
    ++index;
  }
  return text;
}

// Removes the next line from the text and returns it.
std::string_view nextLine(std::string_view &text) {
  std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

class ExecReader {
public:
  explicit ExecReader(std::string_view exec) : exec_(exec) {}

  std::optional<std::vector<std::string>> read() {
    while (index_ < exec_.size()) {
      char c = exec_[index_++];
      if (c == '"') {
        if (!readQuoted())
          return std::nullopt;
      } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
        finishArgument();
      } else if (c == '%') {
        readFieldCode();
      } else {
        bool escapes = c == '\\' && index_ < exec_.size();
        add(escapes ? exec_[index_++] : c);
      }
    }
    finishArgument();
    return std::move(arguments_);
  }

private:
  void add(char c) {
    argument_ += c;
    isOpen_ = true;
  }
  void finishArgument() {
    if (std::exchange(isOpen_, false))
      arguments_.push_back(argument_);
    argument_.clear();
  }
  // Only a program that opens a file supplies the code's value, so the code is
  // dropped, and an argument of nothing but a code with it.
  void readFieldCode() {
    char code = index_ < exec_.size() ? exec_[index_++] : '\0';
    if (code == '%')
      add('%');
  }
  // Between quotes a backslash escapes these four, and is literal before any
  // other character.
  bool readQuoted() {
    isOpen_ = true;
    for (; index_ < exec_.size(); ++index_) {
      char c = exec_[index_];
      if (c == '"') {
        ++index_;
        return true;
      }
      bool escapes = c == '\\' && index_ + 1 < exec_.size() &&
                     std::string_view("\"`$\\").find(exec_[index_ + 1]) != std::string_view::npos;
      argument_ += escapes ? exec_[++index_] : c;
    }
    return false;
  }

  std::string_view exec_;
  std::size_t index_ = 0;
  std::string argument_;
  bool isOpen_ = false; // an argument has begun, even an empty one
  std::vector<std::string> arguments_;
};

} // namespace

DesktopEntry desktopEntryFromText(std::string_view text) {
  DesktopEntry entry;
  bool inGroup = false;
  while (!text.empty()) {
    std::string_view line = nextLine(text);
    if (line.starts_with('[')) {
      inGroup = trimmed(line) == "[Desktop Entry]";
      continue;
    }
    std::size_t equals = line.find('=');
    if (!inGroup || line.starts_with('#') || equals == std::string_view::npos)
      continue;
    std::string_view key = trimmed(line.substr(0, equals));
    if (key == "Name")
      entry.name = unescapedValue(trimmed(line.substr(equals + 1)));
    else if (key == "Exec")
      entry.exec = unescapedValue(trimmed(line.substr(equals + 1)));
  }
  return entry;
}

std::optional<std::vector<std::string>> argumentsOfExec(std::string_view exec) {
  return ExecReader(exec).read();
}

} // namespace NS
