// A thread that keeps exchanging folders for links to somewhere else while the
// code under test works on the folders' paths.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kwtest {

// The length of each race, in seconds; longer on demand.
inline std::chrono::duration<double> raceDuration() {
  const char *seconds = std::getenv("KEEPWELL_RACE_SECONDS");
  return std::chrono::duration<double>(seconds ? std::atof(seconds) : 3.0);
}

class Attacker {
public:
  // A folder's path and that of the link that it is exchanged for. Either may
  // be missing for a while.
  using Pair = std::pair<std::string, std::string>;

  explicit Attacker(std::vector<Pair> pairs)
      : pairs_(std::move(pairs)), thread_([this] { exchangeUntilStopped(); }) {}
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
      for (const auto &[folder, link] : pairs_)
        if (::renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0)
          ++exchanges_;
  }

  std::vector<Pair> pairs_;
  std::atomic<bool> stopped_{false};
  std::atomic<unsigned long> exchanges_{0};
  std::thread thread_;
};

} // namespace kwtest
