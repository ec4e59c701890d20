// How long a walk takes with so many threads, warm and with dropped caches.
//
// walk-threads PATH ROUNDS
//
// Prints, for each number of threads and for the number that the walk finds by
// itself (0), the median of the rounds in nanoseconds: threads, warm, cold.
// Needs root, to drop the caches.
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Internal/Processors.h"
#include "Tools/RVFileSizer.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

class FixedThreads final : public NS::Processors {
public:
  explicit FixedThreads(unsigned count) : count_(count) {}
  unsigned usable() const override { return count_; }
  unsigned threadsForVolume() const override { return count_; }
  unsigned threadsForDevice() const override { return count_; }

private:
  unsigned count_;
  NS::ScopedOverride<NS::Processors> override_{*this};
};

void dropCaches() {
  ::sync();
  std::ofstream file("/proc/sys/vm/drop_caches");
  file << "3" << std::flush;
  if (!file)
    throw std::runtime_error("the caches could not be dropped");
}

long long median(const std::string &path, int rounds, bool isCold) {
  std::vector<long long> times;
  for (int round = 0; round < rounds; ++round) {
    if (isCold)
      dropCaches();
    auto start = std::chrono::steady_clock::now();
    if (kw::RVFileSizer::shared().itemSizeAtPath(path) == 0)
      throw std::runtime_error("nothing was measured");
    times.push_back((std::chrono::steady_clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

void measure(const std::string &path, int rounds, unsigned threads) {
  std::unique_ptr<FixedThreads> fixed;
  if (threads > 0)
    fixed = std::make_unique<FixedThreads>(threads);
  long long cold = median(path, rounds, true);
  std::cout << threads << ' ' << median(path, rounds, false) << ' ' << cold << std::endl;
}

} // namespace

int main(int count, char **arguments) {
  if (count != 3)
    return 2;
  for (unsigned threads : {1u, 2u, 3u, 4u, 6u, 8u, 12u, 16u, 0u})
    measure(arguments[1], std::stoi(arguments[2]), threads);
}
