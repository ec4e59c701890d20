// The variables of the environment that choose a locale, as a test wants them
// and afterwards as they were. For programs with one thread.
#pragma once

#include <map>
#include <optional>
#include <stdlib.h>
#include <string>

namespace kwtest {

// Sets the given ones and clears the others until its end.
class LocaleVariables {
public:
  using Wanted = std::map<std::string, std::string>;

  explicit LocaleVariables(const Wanted &wanted) {
    for (const char *name : {"LC_ALL", "LC_NUMERIC", "LC_MESSAGES", "LANG"}) {
      const char *value = ::getenv(name);
      former_[name] = value ? std::optional<std::string>(value) : std::nullopt;
      auto found = wanted.find(name);
      set(name, found == wanted.end() ? std::nullopt : std::optional(found->second));
    }
  }
  ~LocaleVariables() {
    for (const auto &[name, value] : former_)
      set(name, value);
  }
  LocaleVariables(const LocaleVariables &) = delete;
  LocaleVariables &operator=(const LocaleVariables &) = delete;

private:
  static void set(const std::string &name, const std::optional<std::string> &value) {
    if (value)
      ::setenv(name.c_str(), value->c_str(), 1);
    else
      ::unsetenv(name.c_str());
  }

  std::map<std::string, std::optional<std::string>> former_;
};

} // namespace kwtest
