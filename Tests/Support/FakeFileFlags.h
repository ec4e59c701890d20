// File flags in a table of the test. Records each call.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Files/FileFlags.h"

#include <cerrno>
#include <map>
#include <string>
#include <vector>

namespace kwtest {

class FakeFileFlags final : public NS::FileFlags {
public:
  // Items that are not in the table have no flags; a status of -1 fails.
  std::map<std::string, std::int64_t> flags;
  // errno of each change of flags, 0 for success.
  int changeError = 0;
  // The items beneath a folder that cannot be cleared, by its path.
  std::map<std::string, std::string> lockedBeneath;
  // "stat PATH", "chflags PATH FLAGS" and "clear beneath PATH MASK", in order.
  std::vector<std::string> calls;

  int status(const std::string &path, NS::FileStatus &status) override {
    calls.push_back("stat " + path);
    auto found = flags.find(path);
    if (found != flags.end() && found->second < 0) {
      errno = ENOENT;
      return -1;
    }
    status.flags = found == flags.end() ? 0 : static_cast<std::uint32_t>(found->second);
    return 0;
  }

  int clear(const std::string &path, std::uint32_t mask) override {
    NS::FileStatus found;
    if (status(path, found) != 0 || (found.flags & mask) == 0)
      return 0;
    return change(path, found.flags & ~mask);
  }

  void clearBeneath(const std::string &path, std::uint32_t mask,
                    const FailureHandler &failed) override {
    calls.push_back("clear beneath " + path + " " + std::to_string(mask));
    if (auto found = lockedBeneath.find(path); found != lockedBeneath.end())
      failed(found->second, EPERM);
  }

private:
  int change(const std::string &path, std::uint32_t value) {
    calls.push_back("chflags " + path + " " + std::to_string(value));
    if (changeError != 0) {
      errno = changeError;
      return -1;
    }
    flags[path] = value;
    return 0;
  }

  NS::ScopedOverride<NS::FileFlags> override_{*this};
};

} // namespace kwtest
