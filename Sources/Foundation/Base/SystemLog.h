// The host's own log, for the few lines that must reach it independently of the
// diagnostic log.
//
// Thread-safe; a message is one line, without a newline. When the host has no
// log the message is lost.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <string>

namespace NS {

// The number is the platform's own.
enum class SystemLogPriority { Error = 3 };

class SystemLog : public SharedInstance<SystemLog> {
public:
  virtual ~SystemLog() = default;
  static SystemLog &real();

  virtual void syslog(SystemLogPriority priority, const std::string &message) = 0;
};

} // namespace NS
