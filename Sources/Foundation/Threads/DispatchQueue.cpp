// The background queue: a pool of threads made at its first use.
#include "Foundation/Threads/Dispatch.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Threads/Internal/BackgroundPriority.h"
#include "Foundation/Threads/Internal/WorkerPool.h"

#include <optional>
#include <system_error>

namespace NS {
namespace {

// Blocks may wait for one another or for a slow disk; beyond this number the
// next one waits its turn.
constexpr std::size_t mostThreads = 64;
constexpr std::chrono::seconds idleLife{15};

void runGuarded(const std::function<void()> &block) {
  try {
    block();
  } catch (const std::exception &exception) {
    Log("A background block raised: %@", exception.what());
  } catch (...) {
    Log("A background block raised something unknown");
  }
}

class BackgroundQueue final : public DispatchQueue {
public:
  void async(std::function<void()> block) override {
    pool().submit([block = std::move(block)] { runGuarded(block); });
  }

private:
  WorkerPool &pool() {
    try {
      dispatchOnce(made_, [this] {
        pool_.emplace(WorkerLimits{mostThreads}, idleLife, takeBackgroundPriority);
      });
    } catch (const std::system_error &error) {
      throw Exception(InternalInconsistencyException, error.what());
    }
    return *pool_;
  }

  DispatchOnceToken made_;
  std::optional<WorkerPool> pool_;
};

} // namespace

DispatchQueue &DispatchQueue::real() {
  return lastingInstance<BackgroundQueue>();
}

} // namespace NS
