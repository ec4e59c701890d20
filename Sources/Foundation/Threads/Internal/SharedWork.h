// Pieces of one operation, done by its own thread and by a crew. Internal to
// Foundation.
//
// The operation's own thread offers pieces as it meets them, and goes on. A
// piece belongs to a portion, and the thread that offered them can wait until
// all pieces of a portion are done. While it waits it does pieces itself, of
// any portion, so that the work ends even without helpers. Only a few pieces wait
// at a time. The operation's thread itself does a piece that is not taken, and
// offers the pieces that it meets further down.
//
// One lock guards the queue and the portions' counts. No piece is done under it.
// A piece must not throw. It is given the place of the thread that does it.
#pragma once

#include "Foundation/Threads/Internal/Crew.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace NS {

class SharedWork {
public:
  using Piece = std::function<void(HelperPlace &place)>;

  // Derive from it for the state that the pieces of a portion share.
  class Portion {
  public:
    virtual ~Portion() = default;

  private:
    friend class SharedWork;
    std::size_t unfinished_ = 0; // pieces that wait or are being done
  };

  explicit SharedWork(unsigned processors)
      : crew_(processors, [this](HelperPlace &place) { help(place); }) {}
  // Drops pieces that no thread has begun and waits for those under way.
  ~SharedWork();
  SharedWork(const SharedWork &) = delete;
  SharedWork &operator=(const SharedWork &) = delete;

  // Only the operation's own thread calls these. Tells whether another piece
  // would be taken now, if there is any helper.
  bool hasRoom();
  // Leaves a piece to the crew; false when that has enough to do, or when there
  // is no helper: the piece is then the caller's own.
  bool offer(const std::shared_ptr<Portion> &portion, Piece piece);
  // Returns when every piece of the portion is done.
  void finish(const Portion &portion);
  // The place of the operation's own thread.
  HelperPlace &own() { return crew_.own(); }

private:
  struct Task {
    std::shared_ptr<Portion> portion;
    Piece piece;
  };
  using Lock = std::unique_lock<std::mutex>;

  void help(HelperPlace &place);
  void doNext(Lock &lock, HelperPlace &place);

  std::mutex mutex_; // guards the members below, except the crew
  std::condition_variable changed_;
  std::deque<Task> waiting_;
  std::size_t idle_ = 0; // helpers that wait for pieces
  bool isEnding_ = false;
  Crew crew_; // last, so that its threads end before all else
};

} // namespace NS
