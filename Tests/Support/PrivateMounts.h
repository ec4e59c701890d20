// Runs a part of a test in a forked child with private mounts, where it may
// mount freely. Needs root.
#pragma once

#include "Support/ForkedChild.h"

#include <string>
#include <sys/resource.h>

namespace kwtest {

// As inForkedChild, in a mount namespace of the child's own.
template <typename Body> std::string withPrivateMounts(Body body) {
  return inForkedChild([&]() -> std::string {
    if (!enterMountNamespace())
      return "no mount namespace";
    return body();
  });
}

// Options as mount takes them, such as "size=1m".
inline bool mountMemory(const std::string &path, const char *options = nullptr) {
  return ::mount("none", path.c_str(), "tmpfs", 0, options) == 0;
}

inline bool bindMount(const std::string &what, const std::string &where) {
  return ::mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

// Makes an existing mount read-only for this process.
inline bool makeReadOnly(const std::string &path) {
  return ::mount("none", path.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

inline bool limitDescriptors(unsigned count) {
  rlimit limit{count, count};
  return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

} // namespace kwtest

#define KW_REQUIRE_ROOT()                                                                          \
  if (!kwtest::isRoot())                                                                           \
  GTEST_SKIP() << "only root can mount and lock"
