// Run loops over the platform's own. Waiting blocks are in a queue of ours;
// the platform's loop waits for them and handles all other events.
#include "Foundation/Base/macOS/Platform/Foundation.h"
#include "Foundation/Base/macOS/Retained.h"
#include "Foundation/Threads/Internal/BlockRunLoop.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

// Wakes the platform's loop.
@interface KWRunLoopWaker : NSObject {
  BOOL wasWoken;
}
- (void)wake;
// Whether a wake has come since the last question. For the loop's thread.
- (BOOL)takeWake;
@end

@implementation KWRunLoopWaker
- (void)wake {
  wasWoken = YES;
}
- (BOOL)takeWake {
  BOOL result = wasWoken;
  wasWoken = NO;
  return result;
}
@end

namespace NS {
namespace {

// A timer that is never due, so that a loop without other sources waits.
constexpr double timerSeconds = 1e9;
constexpr double longestWaitSeconds = 1e9;

NSDate *dateOf(MonotonicTime due) {
  std::chrono::duration<double> left = due.sinceStart - Clock::shared().monotonicTime().sinceStart;
  return [NSDate dateWithTimeIntervalSinceNow:std::clamp(left.count(), 0.0, longestWaitSeconds)];
}

class PlatformLoop final : public BlockRunLoop {
public:
  PlatformLoop(NSRunLoop *loop, NSThread *thread)
      : loop_(loop), thread_(thread),
        waker_(Retained<KWRunLoopWaker *>::adopting([[KWRunLoopWaker alloc] init])) {}
  ~PlatformLoop() override {
    for (const Retained<NSTimer *> &timer : timers_)
      [timer.get() invalidate];
  }
  PlatformLoop(const PlatformLoop &) = delete;
  PlatformLoop &operator=(const PlatformLoop &) = delete;

  void run() override {
    Frame frame(*this, DefaultRunLoopMode, neverDue);
    while (!isStopped())
      if (!blocks_.performDue(frame.mode) && !isStopped())
        static_cast<void>(handleEvent(frame.mode, neverDue));
  }

  bool runMode(const std::string &mode, MonotonicTime limit) override {
    Frame frame(*this, mode, limit);
    for (;;) {
      if (blocks_.performDue(mode))
        return true;
      if (isStopped())
        return false;
      bool mayWait = Clock::shared().monotonicTime() < limit;
      if (handleEvent(mode, mayWait ? limit : MonotonicTime{}) || blocks_.performDue(mode))
        return true;
      if (!mayWait)
        return false;
    }
  }

private:
  // Lets the platform's loop wait for one event, until the limit or the first
  // block's time. Whether it handled an event other than being woken.
  bool handleEvent(const std::string &mode, MonotonicTime limit) {
    // A block that comes after this line wakes the loop; the code below finds a
    // block that came before it.
    isWakePending_ = false;
    if (isStopped())
      return false;
    @autoreleasepool {
      NSString *platformMode = [NSString stringWithUTF8String:mode.c_str()];
      holdOpen(mode, platformMode);
      NSDate *end = dateOf(std::min(limit, blocks_.firstDue(mode)));
      bool ran = [loop_.get() runMode:platformMode beforeDate:end];
      bool wasWoken = [waker_.get() takeWake];
      return ran && !wasWoken && [end timeIntervalSinceNow] > 0;
    }
  }

  void holdOpen(const std::string &mode, NSString *platformMode) {
    if (!heldModes_.insert(mode).second)
      return;
    timers_.emplace_back([NSTimer timerWithTimeInterval:timerSeconds
                                                 target:waker_.get()
                                               selector:@selector(wake)
                                               userInfo:nil
                                                repeats:YES]);
    [loop_.get() addTimer:timers_.back().get() forMode:platformMode];
  }

  // From any thread. A loop that does not run looks at its blocks when it does.
  void wake() override {
    std::lock_guard lock(mutex_);
    if (frames_.empty() || isWakePending_.exchange(true))
      return;
    @autoreleasepool {
      NSString *mode = [NSString stringWithUTF8String:frames_.back()->mode.c_str()];
      [waker_.get() performSelector:@selector(wake)
                           onThread:thread_.get()
                         withObject:nil
                      waitUntilDone:NO
                              modes:[NSArray arrayWithObject:mode]];
    }
  }

  const Retained<NSRunLoop *> loop_;
  const Retained<NSThread *> thread_;
  const Retained<KWRunLoopWaker *> waker_;
  std::atomic<bool> isWakePending_ = false;
  // Of the loop's thread alone: the modes that have a timer, and the timers.
  std::set<std::string> heldModes_;
  std::vector<Retained<NSTimer *>> timers_;
};

// Static storage is set up by the thread that enters main.
const std::thread::id mainThread = std::this_thread::get_id();

} // namespace

RunLoop &RunLoop::mainRunLoop() {
  // Never destroyed: other threads may stop it until the very end.
  static auto *loop = [] {
    @autoreleasepool {
      return new PlatformLoop([NSRunLoop mainRunLoop], [NSThread mainThread]);
    }
  }();
  return *loop;
}

RunLoop &RunLoop::currentRunLoop() {
  if (std::this_thread::get_id() == mainThread)
    return mainRunLoop();
  @autoreleasepool {
    thread_local PlatformLoop loop([NSRunLoop currentRunLoop], [NSThread currentThread]);
    return loop;
  }
}

} // namespace NS
