// A writer that waits for a reader of its FIFO.
#pragma once

#include "Support/ThreadState.h"

#include <atomic>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kwtest {

// Makes a FIFO and opens it for writing on a thread of its own, which waits there
// as long as no process opens the FIFO for reading.
class WaitingWriter {
public:
  explicit WaitingWriter(const std::string &path) : path_(path) {
    if (::mkfifo(path.c_str(), 0600) != 0)
      throw std::runtime_error("no FIFO at " + path);
    thread_ = std::thread([this] {
      identifier_ = ::gettid();
      int end = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
      wasWoken_ = true;
      ::close(end);
    });
    while (identifier_ == 0 || !isAsleep(identifier_))
      std::this_thread::yield();
  }
  // Lets the thread go.
  ~WaitingWriter() {
    int reading = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    thread_.join();
    ::close(reading);
  }
  WaitingWriter(const WaitingWriter &) = delete;
  WaitingWriter &operator=(const WaitingWriter &) = delete;

  // Tells whether the thread still waits, and was not woken since.
  bool isWaiting() const { return isAsleep(identifier_) && !wasWoken_; }

private:
  const std::string path_;
  std::atomic<int> identifier_{0};
  std::atomic<bool> wasWoken_{false};
  std::thread thread_;
};

} // namespace kwtest
