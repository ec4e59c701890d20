// How many threads of this process help its walks and removals. Internal to
// Foundation.
//
// There is one count for the process. In it are the operations that want help,
// each with its own thread, and the threads that help them. A helper has a
// place in the count, and gives it back when it ends and for as long as it has
// nothing to do.
//
// The cause of the work's waits decides how many helpers there may be. While
// everything is in memory, more threads than processors only take time from
// each other. While threads wait for a device, the processors are free, and a
// device serves several requests at once in hardly more time than one. So the
// count has two bounds: running threads, at most as many as there are
// processors; and threads in all, at most as many as a device can use (or as
// there are processors, if these are more).
//
// The kernel tells whether a thread runs or waits: it counts how often the
// thread gave up its processor. A thread reads that count before and after a
// piece of work, but not at each piece, since reading it costs as much as a
// look at a file. A wait in one of the last two sampled pieces counts the
// thread as waiting, and another one may start. When the following pieces turn
// out to be in memory, more threads run than there are processors, and helpers
// that notice this leave.
//
// Thread-safe, but for a place, which belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <utility>

namespace NS {

class Helpers;

// A thread's place in the count, given back with this object. It belongs to one
// thread at a time.
class HelperPlace {
public:
  HelperPlace() = default;
  HelperPlace(HelperPlace &&other) noexcept { *this = std::move(other); }
  HelperPlace &operator=(HelperPlace &&other) noexcept;
  ~HelperPlace() { rest(); }
  explicit operator bool() const { return helpers_ != nullptr; }

  // Ask it between two pieces of work, with a place that is held. False when more
  // threads run than there are processors, so that this helper should end.
  bool mayStay() const;
  // Gives the place to others.
  void rest();

  // Call these before and after a piece of work that waits for nothing but files.
  // They count whether it waited.
  void begin();
  void end();

private:
  friend class Helpers;
  explicit HelperPlace(Helpers &helpers) : helpers_(&helpers) {}

  // The number of pieces from one sample to the next. The first two pieces are
  // samples too, so that a wait for a device shows early.
  static constexpr unsigned interval = 16;

  Helpers *helpers_ = nullptr;    // null when it is not held
  bool waits_ = false;            // the thread counts as waiting
  bool waitedBefore_ = false;     // in the sample before
  bool isLooking_ = false;        // this piece is a sample
  unsigned pieces_ = 0;           // since the place is held
  std::uint64_t waitsBefore_ = 0; // the kernel's count at the begin of the sample
};

// One operation's claim on helpers. It must outlive their places. Thread-safe,
// but for want and own, which are the operation's thread's.
class Helpers {
public:
  explicit Helpers(unsigned processors);
  Helpers(const Helpers &) = delete;
  Helpers &operator=(const Helpers &) = delete;

  // Counts the operation's own thread as one that uses a processor. A second call
  // changes nothing.
  void want();
  // The place of that thread; not held until it is counted.
  HelperPlace &own() { return own_; }

  // A place for one more helper; one that is not held when there is none.
  HelperPlace take();
  // Tells whether more threads are at work than there are processors. A thread
  // that spins while it waits then takes time from those that it waits for.
  bool isCrowded() const;

private:
  friend class HelperPlace;
  bool enter(bool isOwn);
  void leave(bool waits);
  void setWaiting(bool waits);
  bool isInTheWay() const;

  const unsigned processors_;
  const unsigned mostRunning_; // of this operation
  const unsigned mostThreads_;
  // Of this operation too, guarded by the count's lock.
  unsigned running_ = 0;
  unsigned threads_ = 0;
  HelperPlace own_;
};

} // namespace NS
