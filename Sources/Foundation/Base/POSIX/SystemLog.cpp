// The host's log by the C library.
#include "Foundation/Base/SystemLog.h"

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

} // namespace

SystemLog &SystemLog::real() {
  return lastingInstance<HostLog>();
}

} // namespace NS
