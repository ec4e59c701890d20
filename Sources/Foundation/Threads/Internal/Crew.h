// The threads that help one operation. Internal to Foundation.
//
// The operation's own thread owns the crew: it starts the threads and waits for
// their end. Each has a place in the count of helpers, runs the work function
// once, and ends when that returns: because nothing is left to do, or because
// other operations need the place. A later call starts a thread anew.
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

  // Starts as many helpers as there are places for. Only the owner calls it.
  // False when there is no helper at all.
  bool call();
  // Blocks until every helper's work has returned. The owner tells the work to
  // end first, and only the owner calls this.
  void join();

  // Takes a new place for a helper that gave its own back while it had nothing to
  // do; not held when there is none.
  HelperPlace takePlace() { return helpers_.take(); }
  // The owner's own place.
  HelperPlace &own() { return helpers_.own(); }
  // As that of Helpers.
  bool isCrowded() const { return helpers_.isCrowded(); }

private:
  // More than Processors gives an operation, for measurements with other numbers.
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
