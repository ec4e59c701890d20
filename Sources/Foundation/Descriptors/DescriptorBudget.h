// Counts descriptors before they are needed, so that as many walks and requests
// run at once as the descriptor table can serve, and the others wait for their
// turn instead of failing half-way.
//
// Thread-safe.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <utility>
#include <variant>

namespace NS {

// Raises this process's soft limit of descriptors to the hard one, or to 10,240
// when there is no hard one. Never lowers it; a limit that the host refuses stays
// unchanged. Programs started afterwards get the former soft limit on Linux, and
// this process's on macOS, where no process can set that of another.
void raiseDescriptorLimit();

class DescriptorBudget {
public:
  // Returns the number of shares at present. The budget gives one share even
  // when this is 0.
  using Capacity = std::function<std::size_t()>;
  class Share;

  // The most descriptors of one walk without helpers.
  static constexpr std::size_t perWalk = 40;
  // The most further descriptors of the helpers of a walk or removal, in shares
  // of walks.
  static constexpr std::size_t sharesForHelpers = 2;
  // The most further descriptors of one request: a tool with its pipes.
  static constexpr std::size_t perRequest = 10;

  // The budget of all walks: half of the descriptor table, in shares of perWalk
  // descriptors. Never destroyed.
  static DescriptorBudget &ofWalks();
  // How many requests may run at once, at least one. Three quarters of the other
  // half of the table are for them; the rest is for the agent itself.
  static std::size_t requestsServed();

  explicit DescriptorBudget(Capacity capacity) : capacity_(std::move(capacity)) {}
  DescriptorBudget(const DescriptorBudget &) = delete;
  DescriptorBudget &operator=(const DescriptorBudget &) = delete;

  // Takes one share. Blocks until there is one; callers get theirs in the order
  // of their calls. Returns an empty share when the current request is
  // cancelled meanwhile.
  Share take();
  // Takes this number of shares if no caller waits and half of all shares stays
  // free; else returns an empty share. Does not block.
  Share takeSpare(std::size_t count);

  // The numbers of shares in use and of callers that wait for one.
  std::size_t inUse() const;
  std::size_t waiting() const;

private:
  void giveBack(std::size_t count);

  const Capacity capacity_;
  mutable std::mutex mutex_;
  std::condition_variable freed_;
  std::size_t inUse_ = 0;
  std::list<std::monostate> queue_; // an element for each caller that waits
};

// Holds shares during its life. May be moved, also to another thread.
class DescriptorBudget::Share {
public:
  Share() = default;
  Share(Share &&other) noexcept { swap(other); }
  Share &operator=(Share &&other) noexcept {
    Share taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~Share() {
    if (budget_)
      budget_->giveBack(count_);
  }

  explicit operator bool() const { return budget_ != nullptr; }

private:
  friend class DescriptorBudget;
  Share(DescriptorBudget &budget, std::size_t count) : budget_(&budget), count_(count) {}
  void swap(Share &other) noexcept {
    std::swap(budget_, other.budget_);
    std::swap(count_, other.count_);
  }

  DescriptorBudget *budget_ = nullptr;
  std::size_t count_ = 0;
};

// One walk's share. Hold it while the walk has any descriptor open. A walk
// within a walk of the same thread uses the outer one's, so that no walk waits
// for another share while it holds one. Threads that help a walk take none.
class WalkShare {
public:
  // Waits as DescriptorBudget::take does.
  WalkShare();

private:
  std::shared_ptr<DescriptorBudget::Share> share_;
};

} // namespace NS
