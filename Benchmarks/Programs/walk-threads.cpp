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

struct Times {
  unsigned threads;
  std::vector<long long> warm, cold;
};

long long timeOfWalk(const std::string &path) {
  auto start = std::chrono::steady_clock::now();
  if (kw::RVFileSizer::shared().itemSizeAtPath(path) == 0)
    throw std::runtime_error("nothing was measured");
  return (std::chrono::steady_clock::now() - start).count();
}

void measure(const std::string &path, Times &times) {
  std::unique_ptr<FixedThreads> fixed;
  if (times.threads > 0)
    fixed = std::make_unique<FixedThreads>(times.threads);
  dropCaches();
  times.cold.push_back(timeOfWalk(path));
  times.warm.push_back(timeOfWalk(path));
}

long long median(std::vector<long long> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

} // namespace

int main(int count, char **arguments) {
  if (count != 3)
    return 2;
  std::vector<Times> all;
  for (unsigned threads : {1u, 2u, 3u, 4u, 6u, 8u, 12u, 16u, 0u})
    all.push_back({threads, {}, {}});
  for (int round = 0; round < std::stoi(arguments[2]); ++round)
    for (Times &times : all)
      measure(arguments[1], times);
  for (const Times &times : all)
    std::cout << times.threads << ' ' << median(times.warm) << ' ' << median(times.cold)
              << std::endl;
}
