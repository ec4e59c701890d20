// The state of another thread of this process.
#pragma once

#include <fstream>
#include <string>

namespace kwtest {

// Tells whether the thread waits in the kernel: the state comes after the name.
inline bool isAsleep(int thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string status;
  std::getline(file, status);
  std::size_t name = status.rfind(')');
  return name != std::string::npos && status.compare(name, 3, ") S") == 0;
}

} // namespace kwtest
