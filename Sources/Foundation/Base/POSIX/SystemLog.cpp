// The host's log by the C library.
#include "Foundation/Base/SystemLog.h"

#include "Foundation/Base/SharedInstance.h"

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

using Shared = SharedInstance<SystemLog, HostLog>;

} // namespace

SystemLog &SystemLog::shared() {
  return Shared::get();
}

SystemLog *SystemLog::exchangeShared(SystemLog *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
