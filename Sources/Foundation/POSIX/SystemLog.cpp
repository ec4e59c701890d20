// The host's log by the C library.
#include "Foundation/SystemLog.h"

#include "Foundation/SharedInstance.h"

#include <syslog.h>

namespace NS {
namespace {

static_assert(static_cast<int>(SystemLogPriority::Error) == LOG_ERR);

class HostLog final : public SystemLog {
public:
  void syslog(SystemLogPriority priority, const std::string &message) override {
    ::syslog(static_cast<int>(priority), "%s", message.c_str());
  }
};

SharedInstance<SystemLog> &instance() {
  // Never destroyed: requests may still be running when the process ends.
  static auto *shared = new SharedInstance<SystemLog>(*new HostLog);
  return *shared;
}

} // namespace

SystemLog &SystemLog::shared() {
  return instance().get();
}

SystemLog *SystemLog::exchangeShared(SystemLog *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
