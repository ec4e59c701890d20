// One run of another program: an argument vector, never a shell.
//
// One thread configures and launches a task; any thread may ask about it
// afterwards. A task that ended leaves no zombie, whether or not anybody asks.
#pragma once

#include "Foundation/Pipe.h"

#include <memory>
#include <string>
#include <vector>

namespace NS {

enum class TaskTerminationReason { Exit, UncaughtSignal };

class Task {
public:
  virtual ~Task() = default;
  static std::shared_ptr<Task> create();

  virtual void setLaunchPath(std::string path) = 0;
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  // A stream that is not set is inherited. The parent's copy of the child's
  // end closes at launch, so that a reader sees the end of the data.
  virtual void setStandardInput(std::shared_ptr<Pipe> pipe) = 0;
  virtual void setStandardOutput(std::shared_ptr<Pipe> pipe) = 0;
  virtual void setStandardError(std::shared_ptr<Pipe> pipe) = 0;

  // Starts the program. Raises InvalidArgumentException when it cannot be
  // started ("launch path not accessible" among the reasons) or was started
  // before.
  virtual void launch() = 0;
  virtual bool isRunning() = 0;
  virtual void waitUntilExit() = 0;
  // The exit status, or the number of the signal that ended the program.
  // Raises InvalidArgumentException while it is running.
  virtual int terminationStatus() = 0;
  virtual TaskTerminationReason terminationReason() = 0;
  // 0 before the launch.
  virtual int processIdentifier() const = 0;
};

} // namespace NS
