// Run loops over GLib's main contexts. A source of each context runs the blocks
// that wait for its loop.
#include "Foundation/Threads/Internal/BlockRunLoop.h"

#include <algorithm>
#include <cstdint>
#include <glib.h>
#include <limits>
#include <memory>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

using std::chrono::nanoseconds;
using Context = std::unique_ptr<GMainContext, decltype(&g_main_context_unref)>;

// The whole milliseconds that poll takes, rounded up so that it does not wake
// too early.
int millisecondsUntil(MonotonicTime due, MonotonicTime now) {
  if (due == neverDue)
    return -1;
  if (due <= now)
    return 0;
  nanoseconds left = due.sinceStart - now.sinceStart;
  auto whole = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<std::int64_t>(whole, std::numeric_limits<int>::max()));
}

class ContextLoop final : public BlockRunLoop {
public:
  explicit ContextLoop(GMainContext *context)
      : context_(g_main_context_ref(context), &g_main_context_unref),
        source_(makeSource(), &g_source_unref) {
    g_source_attach(source_.get(), context_.get());
  }
  ~ContextLoop() override { g_source_destroy(source_.get()); }
  ContextLoop(const ContextLoop &) = delete;
  ContextLoop &operator=(const ContextLoop &) = delete;

  void run() override {
    Frame frame(*this, DefaultRunLoopMode, neverDue);
    while (!isStopped())
      g_main_context_iteration(context_.get(), TRUE);
  }

  bool runMode(const std::string &mode, MonotonicTime limit) override {
    Frame frame(*this, mode, limit);
    for (;;) {
      bool mayWait = Clock::shared().monotonicTime() < limit;
      if (g_main_context_iteration(context_.get(), mayWait))
        return true;
      if (!mayWait || isStopped())
        return false;
    }
  }

private:
  void wake() override { g_main_context_wakeup(context_.get()); }

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

  // Tells whether a block is due, and the time until the next one.
  bool prepareBlocks(int &milliseconds) {
    // Code that iterates the context without this loop waits in the default
    // mode.
    const Frame *frame = innermost();
    MonotonicTime now = Clock::shared().monotonicTime();
    MonotonicTime due = blocks_.firstDue(frame ? frame->mode : DefaultRunLoopMode);
    milliseconds = millisecondsUntil(std::min(due, frame ? frame->limit : neverDue), now);
    return due <= now;
  }

  void performDueBlocks() {
    const Frame *frame = innermost();
    std::string mode = frame ? frame->mode : DefaultRunLoopMode;
    static_cast<void>(blocks_.performDue(mode));
  }

  const Context context_;
  const std::unique_ptr<GSource, decltype(&g_source_unref)> source_;
};

// A thread that is not the main one gets a context of its own.
class ThreadLoop {
public:
  ThreadLoop() : context_(g_main_context_new(), &g_main_context_unref), loop_(context_.get()) {}
  RunLoop &loop() { return loop_; }

private:
  const Context context_;
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
