// The loop in which a thread waits for events.
#pragma once

namespace NS {

class RunLoop {
public:
  virtual ~RunLoop() = default;

  // The loop of the calling thread, made at its first use.
  static RunLoop &currentRunLoop();
  // The loop of the thread that entered main.
  static RunLoop &mainRunLoop();

  // Handles events until the loop is stopped. Called on the loop's own thread.
  virtual void run() = 0;
  // Makes the innermost run return; from any thread.
  virtual void stop() = 0;
};

} // namespace NS
