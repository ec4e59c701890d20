// The number of threads of this process that may help its walks: together with
// every walk's own thread at most the number of processors. Internal to
// Foundation.
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

// One walk's claim on helpers. Each further walk with enough work for helpers
// takes a processor from those of the others.
class WalkHelpers {
public:
  // A few threads exhaust the parallelism that the volume's own locks allow.
  static constexpr unsigned most = 3;

  explicit WalkHelpers(unsigned processors) : processors_(processors) {}
  ~WalkHelpers();
  WalkHelpers(const WalkHelpers &) = delete;
  WalkHelpers &operator=(const WalkHelpers &) = delete;

  // Counts this walk among those at work. A second call changes nothing.
  void wantHelp();
  // Tells whether one more helper may start; it must leave() when it ends.
  bool mayJoin();
  // A helper asks between two pieces of work. False when another walk needs its
  // processor.
  bool mayStay() const;
  void leave();

private:
  const unsigned processors_;
  bool counted_ = false;
};

} // namespace NS
