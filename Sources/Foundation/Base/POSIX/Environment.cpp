// The environment and its lock.
#include "Foundation/Base/Environment.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Internal/EnvironmentLock.h"

#include <cstdlib>
#include <mutex>

namespace NS {

std::shared_mutex &environmentLock() {
  // Never destroyed: threads may start programs until the very end.
  static std::shared_mutex *lock = new std::shared_mutex;
  return *lock;
}

void setEnvironmentVariable(const std::string &name, const std::string &value) {
  bool holdsNul = (name + value).find('\0') != std::string::npos;
  std::unique_lock lock(environmentLock());
  if (holdsNul || ::setenv(name.c_str(), value.c_str(), 1) != 0)
    throw Exception(InvalidArgumentException, "environment variable not valid: " + name);
}

} // namespace NS
