// A few threads that take over named pieces of one operation during its time.
// Internal to Foundation.
//
// One thread leads: it offers pieces, and at the end works on the rest together
// with the others. A piece's work must not throw.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NS {

class Crew {
public:
  using Work = std::function<void(const std::string &piece)>;

  // Threads start only when there are pieces for them.
  Crew(std::size_t members, Work work) : members_(members), work_(std::move(work)) {}
  // Drops pieces that no thread has begun and waits for those under way.
  ~Crew();
  Crew(const Crew &) = delete;
  Crew &operator=(const Crew &) = delete;

  // Passes a piece to the crew. False when the crew's queue is full, or when the
  // system has no thread for it: the leader then keeps the piece.
  bool offer(const std::string &piece);
  // Returns when every piece is done.
  void finish();

private:
  void workUntilEnd();
  void workOffOne(std::unique_lock<std::mutex> &lock);
  bool startMember();

  const std::size_t members_;
  const Work work_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> waiting_;
  std::size_t underWay_ = 0;
  bool ending_ = false;
  std::vector<std::thread> threads_; // the leader's alone
};

} // namespace NS
