// Run loops over GLib's main contexts. The blocks wait in a queue of our own
// behind a source of the context: their modes and their order are none of
// GLib's business.
#include "Foundation/RunLoop.h"

#include "Foundation/Log.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <glib.h>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

using std::chrono::nanoseconds;
constexpr MonotonicTime never{nanoseconds::max()};

bool runsIn(const RunLoopModes &modes, const std::string &mode) {
  return std::any_of(modes.begin(), modes.end(), [&](const std::string &wanted) {
    return wanted == mode || (wanted == RunLoopCommonModes && mode == DefaultRunLoopMode);
  });
}

// Blocks by when they are due, then by when they came. Thread-safe.
class BlockQueue {
public:
  void add(MonotonicTime due, std::function<void()> block, const RunLoopModes &modes) {
    std::lock_guard lock(mutex_);
    entries_.emplace(Key{due, next_++}, Entry{std::move(block), modes});
  }

  // The number that the next block to come will have.
  std::uint64_t nextNumber() {
    std::lock_guard lock(mutex_);
    return next_;
  }

  // When the first block of the mode is due.
  MonotonicTime firstDue(const std::string &mode) {
    std::lock_guard lock(mutex_);
    auto found = first(mode, next_);
    return found == entries_.end() ? never : found->first.first;
  }

  // Takes out the first block of the mode that is due and has a number below
  // the limit.
  std::function<void()> take(const std::string &mode, MonotonicTime now, std::uint64_t limit) {
    std::lock_guard lock(mutex_);
    auto found = first(mode, limit);
    if (found == entries_.end() || found->first.first > now)
      return nullptr;
    return std::move(entries_.extract(found).mapped().block);
  }

private:
  using Key = std::pair<MonotonicTime, std::uint64_t>;
  struct Entry {
    std::function<void()> block;
    RunLoopModes modes;
  };
  using Entries = std::map<Key, Entry>;

  Entries::iterator first(const std::string &mode, std::uint64_t limit) {
    return std::find_if(entries_.begin(), entries_.end(), [&](const auto &item) {
      return item.first.second < limit && runsIn(item.second.modes, mode);
    });
  }

  std::mutex mutex_;
  Entries entries_;
  std::uint64_t next_ = 0;
};

void runGuarded(const std::function<void()> &block) {
  try {
    block();
  } catch (const std::exception &exception) {
    Log("A run loop block raised: %@", exception.what());
  } catch (...) {
    Log("A run loop block raised something unknown");
  }
}

// The whole milliseconds that poll takes, rounded up lest it wake too early.
int millisecondsUntil(MonotonicTime due, MonotonicTime now) {
  if (due == never)
    return -1;
  if (due <= now)
    return 0;
  nanoseconds left = due.sinceStart - now.sinceStart;
  auto whole = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<std::int64_t>(whole, std::numeric_limits<int>::max()));
}

class ContextLoop final : public RunLoop {
public:
  explicit ContextLoop(GMainContext *context)
      : context_(g_main_context_ref(context)), source_(makeSource()) {
    g_source_attach(source_, context_);
  }
  ~ContextLoop() override {
    g_source_destroy(source_);
    g_source_unref(source_);
    g_main_context_unref(context_);
  }
  ContextLoop(const ContextLoop &) = delete;
  ContextLoop &operator=(const ContextLoop &) = delete;

  void run() override {
    Frame frame(*this, DefaultRunLoopMode, never);
    while (!isStopped())
      g_main_context_iteration(context_, TRUE);
  }

  bool runMode(const std::string &mode, MonotonicTime limit) override {
    Frame frame(*this, mode, limit);
    for (;;) {
      bool mayWait = Clock::shared().monotonicTime() < limit;
      if (g_main_context_iteration(context_, mayWait))
        return true;
      if (!mayWait || isStopped())
        return false;
    }
  }

  void stop() override {
    {
      std::lock_guard lock(mutex_);
      if (frames_.empty())
        return;
      frames_.back()->stopped = true;
    }
    g_main_context_wakeup(context_);
  }

  void performBlock(std::function<void()> block, const RunLoopModes &modes) override {
    // Due since ever, so that delayed blocks never come between.
    add(MonotonicTime{}, std::move(block), modes);
  }
  void performBlock(std::function<void()> block, double delaySeconds,
                    const RunLoopModes &modes) override {
    constexpr double longest = 9e18; // nanoseconds; what follows saturates nowhere else
    double delay = std::isnan(delaySeconds) ? 0 : std::clamp(delaySeconds * 1e9, 0.0, longest);
    MonotonicTime due = Clock::shared().monotonicTime();
    auto wait = nanoseconds(static_cast<std::int64_t>(delay));
    due.sinceStart += std::min(wait, never.sinceStart - due.sinceStart);
    add(due, std::move(block), modes);
  }

private:
  // One run under way. The loop's thread makes and removes frames.
  struct Frame {
    Frame(ContextLoop &owner, std::string runMode, MonotonicTime runLimit)
        : loop(owner), mode(std::move(runMode)), limit(runLimit) {
      std::lock_guard lock(loop.mutex_);
      loop.frames_.push_back(this);
    }
    ~Frame() {
      std::lock_guard lock(loop.mutex_);
      loop.frames_.pop_back();
    }
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    ContextLoop &loop;
    const std::string mode;
    const MonotonicTime limit;
    bool stopped = false; // under the loop's mutex
  };

  struct BlockSource {
    GSource base;
    ContextLoop *loop;
  };

  GSource *makeSource() {
    static GSourceFuncs functions = {prepare, check, dispatch, nullptr, nullptr, nullptr};
    GSource *source = g_source_new(&functions, sizeof(BlockSource));
    reinterpret_cast<BlockSource *>(source)->loop = this;
    g_source_set_can_recurse(source, TRUE);
    return source;
  }
  static ContextLoop &loopOf(GSource *source) {
    return *reinterpret_cast<BlockSource *>(source)->loop;
  }

  static gboolean prepare(GSource *source, gint *timeout) {
    return loopOf(source).prepareBlocks(*timeout);
  }
  static gboolean check(GSource *source) {
    gint timeout = -1;
    return loopOf(source).prepareBlocks(timeout);
  }
  static gboolean dispatch(GSource *source, GSourceFunc, gpointer) {
    loopOf(source).performDueBlocks();
    return G_SOURCE_CONTINUE;
  }

  // Whether a block is due, and how long there is none.
  bool prepareBlocks(int &milliseconds) {
    // Whoever iterates the context without this loop waits as the default does.
    const Frame *frame = innermost();
    MonotonicTime now = Clock::shared().monotonicTime();
    MonotonicTime due = blocks_.firstDue(frame ? frame->mode : DefaultRunLoopMode);
    milliseconds = millisecondsUntil(std::min(due, frame ? frame->limit : never), now);
    return due <= now;
  }

  void performDueBlocks() {
    const Frame *frame = innermost();
    const std::string mode = frame ? frame->mode : DefaultRunLoopMode;
    // What blocks of this turn add is for the next one. They are taken one by
    // one, so that a run within a block finds those after it in order.
    std::uint64_t limit = blocks_.nextNumber();
    MonotonicTime now = Clock::shared().monotonicTime();
    while (std::function<void()> block = blocks_.take(mode, now, limit))
      runGuarded(block);
  }

  void add(MonotonicTime due, std::function<void()> block, const RunLoopModes &modes) {
    if (modes.empty() || !block)
      return;
    blocks_.add(due, std::move(block), modes);
    g_main_context_wakeup(context_);
  }

  const Frame *innermost() {
    std::lock_guard lock(mutex_);
    return frames_.empty() ? nullptr : frames_.back();
  }
  bool isStopped() {
    std::lock_guard lock(mutex_);
    return frames_.back()->stopped;
  }

  GMainContext *const context_;
  GSource *const source_;
  BlockQueue blocks_;
  std::mutex mutex_;
  std::vector<Frame *> frames_; // innermost last
};

// A thread that is not the main one gets a context of its own.
class ThreadLoop {
public:
  ThreadLoop() : context_(g_main_context_new()), loop_(context_) {}
  ~ThreadLoop() { g_main_context_unref(context_); }
  ThreadLoop(const ThreadLoop &) = delete;
  ThreadLoop &operator=(const ThreadLoop &) = delete;
  RunLoop &loop() { return loop_; }

private:
  GMainContext *context_;
  ContextLoop loop_;
};

} // namespace

RunLoop &RunLoop::mainRunLoop() {
  // Never destroyed: other threads may stop it until the very end.
  static auto *loop = new ContextLoop(g_main_context_default());
  return *loop;
}

RunLoop &RunLoop::currentRunLoop() {
  if (::gettid() == ::getpid())
    return mainRunLoop();
  thread_local ThreadLoop loop;
  return loop.loop();
}

} // namespace NS
