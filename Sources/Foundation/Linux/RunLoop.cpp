// Run loops over GLib's main loop.
#include "Foundation/RunLoop.h"

#include <glib.h>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace NS {
namespace {

class ContextLoop final : public RunLoop {
public:
  explicit ContextLoop(GMainContext *context) : context_(g_main_context_ref(context)) {}
  ~ContextLoop() override { g_main_context_unref(context_); }
  ContextLoop(const ContextLoop &) = delete;
  ContextLoop &operator=(const ContextLoop &) = delete;

  void run() override {
    GMainLoop *loop = g_main_loop_new(context_, FALSE);
    {
      std::lock_guard lock(mutex_);
      running_.push_back(loop);
    }
    g_main_loop_run(loop);
    {
      std::lock_guard lock(mutex_);
      running_.pop_back();
    }
    g_main_loop_unref(loop);
  }

  void stop() override {
    std::lock_guard lock(mutex_);
    if (!running_.empty())
      g_main_loop_quit(running_.back());
  }

private:
  GMainContext *context_;
  std::mutex mutex_;
  std::vector<GMainLoop *> running_; // innermost last
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
