// The environment of the running process.
#include "Foundation/Processes/ProcessInfo.h"

#include "Foundation/Base/Internal/EnvironmentLock.h"

#include <pwd.h>
#include <shared_mutex>
#include <string_view>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace NS {
namespace {

class RunningProcess final : public ProcessInfo {
public:
  Environment environment() override {
    Environment values;
    std::shared_lock lock(environmentLock());
    for (char **entry = environ; entry && *entry; ++entry) {
      std::string_view pair = *entry;
      std::size_t equals = pair.find('=');
      if (equals != std::string_view::npos)
        values.emplace(pair.substr(0, equals), pair.substr(equals + 1));
    }
    return values;
  }
};

} // namespace

ProcessInfo &ProcessInfo::real() {
  return lastingInstance<RunningProcess>();
}

std::uint32_t realUserIdentifier() {
  return ::getuid();
}

std::string realUserName() {
  struct passwd record {};
  struct passwd *found = nullptr;
  std::vector<char> texts(16384);
  if (::getpwuid_r(::getuid(), &record, texts.data(), texts.size(), &found) == 0 && found)
    return found->pw_name;
  return std::to_string(::getuid());
}

} // namespace NS
