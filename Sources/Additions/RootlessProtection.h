// Tells whether the running system protects its own files even from root,
// decided once, and the items that it protects.
//
// Any thread may use it.
#pragma once

#include <mutex>
#include <string>

namespace kw {

class RootlessProtection {
public:
  // Asks for the system's version at the first call only.
  bool isSupported();
  bool protects(const std::string &path);

private:
  std::once_flag once_;
  bool supported_ = false;
};

} // namespace kw
