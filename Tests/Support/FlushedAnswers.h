// Output of a command whose reader sees only flushed text.
#pragma once

#include <condition_variable>
#include <mutex>
#include <sstream>
#include <string>

namespace kwtest {

class FlushedAnswers : public std::stringbuf {
public:
  void waitFor(const std::string &text) {
    std::unique_lock lock(mutex_);
    flushed_.wait(lock, [&] { return seen_.find(text) != std::string::npos; });
  }

protected:
  int sync() override {
    std::lock_guard lock(mutex_);
    seen_ = str();
    flushed_.notify_all();
    return 0;
  }

private:
  std::mutex mutex_;
  std::condition_variable flushed_;
  std::string seen_;
};

} // namespace kwtest
