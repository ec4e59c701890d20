// A writer that waits for a reader of its FIFO.
#pragma once

#include <atomic>
#include <fcntl.h>
#include <fstream>
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
    while (identifier_ == 0 || !isAsleep())
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
  bool isWaiting() const { return isAsleep() && !wasWoken_; }

private:
  // Whether the thread waits in the kernel: the state comes after the name.
  bool isAsleep() const {
    std::ifstream file("/proc/self/task/" + std::to_string(identifier_) + "/stat");
    std::string status;
    std::getline(file, status);
    std::size_t name = status.rfind(')');
    return name != std::string::npos && status.compare(name, 3, ") S") == 0;
  }

  const std::string path_;
  std::atomic<int> identifier_{0};
  std::atomic<bool> wasWoken_{false};
  std::thread thread_;
};

} // namespace kwtest
