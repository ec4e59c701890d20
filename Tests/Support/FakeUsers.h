// An environment and a user database that a test writes itself.
#pragma once

#include "Foundation/Desktop/HomeDirectory.h"
#include "Foundation/Processes/ProcessInfo.h"

#include <map>
#include <optional>
#include <string>

namespace kwtest {

class FakeProcessInfo final : public NS::ProcessInfo {
public:
  Environment values;
  int readings = 0;

  Environment environment() override {
    ++readings;
    return values;
  }
};

class FakeUserDatabase final : public NS::UserDatabase {
public:
  std::optional<std::string> current;
  std::map<std::string, std::string> others;
  int currentReadings = 0;

  std::optional<std::string> homeDirectoryOfCurrentUser() override {
    ++currentReadings;
    return current;
  }
  std::optional<std::string> homeDirectoryForUser(const std::string &name) override {
    auto found = others.find(name);
    return found == others.end() ? std::nullopt : std::optional(found->second);
  }
};

} // namespace kwtest
