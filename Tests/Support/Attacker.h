// A thread that keeps exchanging a folder for a link to somewhere else while
// the code under test works on the folder's path.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace kwtest {

// How long each race is run, in seconds; longer where it is asked for.
inline std::chrono::duration<double> raceDuration() {
  const char *seconds = std::getenv("KEEPWELL_RACE_SECONDS");
  return std::chrono::duration<double>(seconds ? std::atof(seconds) : 3.0);
}

class Attacker {
public:
  // The link stands at the given path from the start.
  Attacker(std::string folder, std::string link)
      : folder_(std::move(folder)), link_(std::move(link)),
        thread_([this] { exchangeUntilStopped(); }) {}
  ~Attacker() {
    stopped_ = true;
    thread_.join();
  }
  Attacker(const Attacker &) = delete;
  Attacker &operator=(const Attacker &) = delete;

  unsigned long exchanges() const { return exchanges_; }

private:
  void exchangeUntilStopped() {
    while (!stopped_)
      if (::renameat2(AT_FDCWD, folder_.c_str(), AT_FDCWD, link_.c_str(), RENAME_EXCHANGE) == 0)
        ++exchanges_;
  }

  std::string folder_;
  std::string link_;
  std::atomic<bool> stopped_{false};
  std::atomic<unsigned long> exchanges_{0};
  std::thread thread_;
};

} // namespace kwtest
