// The threads that help one operation. For bodies of the seam only.
//
// The operation's own thread owns the crew: it calls the threads and waits for
// their end. Each has a place in the count of helpers and does the operation's
// work until the work returns, be it that nothing is left to do or that the
// place is wanted by others. Threads start only when they are called; those that
// are gone are started again by a later call.
#pragma once

#include "Foundation/Threads/Internal/Helpers.h"

#include <array>
#include <atomic>
#include <functional>
#include <thread>

namespace NS {

class Crew {
public:
  // Must not throw.
  using Work = std::function<void(HelperPlace &place)>;

  Crew(unsigned processors, Work work) : helpers_(processors), work_(std::move(work)) {}
  // Waits as join does.
  ~Crew() { join(); }
  Crew(const Crew &) = delete;
  Crew &operator=(const Crew &) = delete;

  // Starts as many helpers as there are places for. By the owner alone. False
  // when there is no helper at all.
  bool call();
  // Returns when every helper's work has returned, which is for the owner to
  // bring about. By the owner alone.
  void join();

  // A place for a helper that gave its own to others while it had nothing to do.
  HelperPlace takePlace() { return helpers_.take(); }
  // The owner's own place.
  HelperPlace &own() { return helpers_.own(); }
  bool isCrowded() const { return helpers_.isCrowded(); }

private:
  // More than an operation ever has, but for measurements.
  static constexpr std::size_t most = 15;
  struct Member {
    std::thread thread;
    std::atomic<bool> isOver{true};
  };
  bool start(Member &member);

  Helpers helpers_;
  const Work work_;
  std::array<Member, most> members_;
};

} // namespace NS
