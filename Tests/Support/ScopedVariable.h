// An environment variable for the length of a scope.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace kwtest {

class ScopedVariable {
public:
  // Empty: it is not set.
  ScopedVariable(const char *name, const std::string &value) : name_(name) {
    if (const char *former = std::getenv(name))
      former_ = former;
    set(value);
  }
  ~ScopedVariable() { set(former_.value_or("")); }
  ScopedVariable(const ScopedVariable &) = delete;
  ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
  void set(const std::string &value) const {
    if (value.empty())
      ::unsetenv(name_);
    else
      ::setenv(name_, value.c_str(), 1);
  }

  const char *name_;
  std::optional<std::string> former_;
};

} // namespace kwtest
