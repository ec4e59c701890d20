// Collects log messages during its life. Thread-safe.
#pragma once

#include "Foundation/Base/Log.h"

#include <mutex>
#include <string>
#include <vector>

namespace kwtest {

class LogRecorder {
public:
  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }

private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  NS::ScopedLogSink sink_{[this](const std::string &message) {
    std::lock_guard lock(mutex_);
    lines_.push_back(message);
  }};
};

} // namespace kwtest
