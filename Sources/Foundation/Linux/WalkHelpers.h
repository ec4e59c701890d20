// How many threads of this process may help its walks: with every walk's own
// thread, no more than there are processors. Internal to Foundation.
//
// Thread-safe.
#pragma once

namespace NS {

// The processors that the calling thread may run on.
class Processors {
public:
  virtual ~Processors() = default;
  static Processors &shared();
  static Processors *exchangeShared(Processors *replacement);

  virtual unsigned usable() const = 0;
};

// One walk's claim on helpers. Each further walk that has work enough for
// helpers takes a processor from those of the others.
class WalkHelpers {
public:
  // A few threads exhaust the parallelism that the volume's own locks allow.
  static constexpr unsigned most = 3;

  explicit WalkHelpers(unsigned processors) : processors_(processors) {}
  ~WalkHelpers();
  WalkHelpers(const WalkHelpers &) = delete;
  WalkHelpers &operator=(const WalkHelpers &) = delete;

  // Counts this walk among those at work. Counting it twice changes nothing.
  void wantHelp();
  // Whether one more helper may start; it must leave() when it ends.
  bool mayJoin();
  // Asked by a helper between two pieces of work: false when it is in the way
  // of another walk.
  bool mayStay() const;
  void leave();

private:
  const unsigned processors_;
  bool counted_ = false;
};

} // namespace NS
