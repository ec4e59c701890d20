// One run of another program: an argument vector, never a shell.
//
// One thread configures and launches a task; afterwards any thread may ask
// about it. A task that ended leaves no zombie, with or without a question
// about it, even when memory runs out meanwhile.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Descriptors/Pipe.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NS {

enum class TaskTerminationReason { Exit, UncaughtSignal };

class Task {
public:
  virtual ~Task() = default;
  // Makes a task by the shared factory.
  static std::shared_ptr<Task> create();

  virtual void setLaunchPath(std::string path) = 0;
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  // The program inherits each stream that is not set. The parent's copy of the
  // child's end closes at launch, so that a reader sees the end of the data.
  virtual void setStandardInput(std::shared_ptr<Pipe> pipe) = 0;
  virtual void setStandardOutput(std::shared_ptr<Pipe> pipe) = 0;
  virtual void setStandardError(std::shared_ptr<Pipe> pipe) = 0;
  // The task kills the program when it still runs so long after its launch.
  // Without a limit it may run for ever.
  virtual void setTimeLimit(std::chrono::milliseconds limit) = 0;

  // Starts the program with this process's environment and working directory,
  // default signal dispositions and no descriptor but the standard streams.
  // Raises InvalidArgumentException when it cannot be started: "launch path not
  // accessible (...)" when the path is not that of an executable file, "launch
  // failed (...)" with the system's text for other causes, and other texts for
  // a path that is not set or not absolute, a NUL byte, a closed pipe and a
  // second launch. After a failure the pipes are as before and the task may be
  // launched again. Throws ResourceShortage when the process has no descriptor,
  // memory, process or thread left to start a program or to watch over it.
  virtual void launch() = 0;
  // Does not block; false before the launch.
  virtual bool isRunning() = 0;
  // Raises InvalidArgumentException before the launch.
  virtual void waitUntilExit() = 0;
  // Kills the program if it still runs, and waits for its end. Raises
  // InvalidArgumentException before the launch.
  virtual void kill() = 0;
  // Returns everything that the program writes to the pipe of its standard
  // output until it closes that or ends. It does not wait for the program's own
  // children, which may hold the pipe open longer. Empty when the time limit
  // comes first, when reading fails, and when there are more bytes than the
  // size limit; the program has then been killed. Blocks. Raises
  // InvalidArgumentException before the launch and without such a pipe.
  virtual std::optional<std::string> readOutput(std::size_t sizeLimit) = 0;
  // The exit status, or the number of the signal that ended the program; -1
  // when other code in the process has waited for it. Raises
  // InvalidArgumentException before the launch and while the program is
  // running.
  virtual int terminationStatus() = 0;
  // Raises as the status does.
  virtual TaskTerminationReason terminationReason() = 0;
  // 0 before the launch; keeps its value after the end.
  virtual int processIdentifier() const = 0;
};

// Kills a launched program at the end of its life unless the work with it is
// done. Nothing waits for a program whose output is given up, also when memory
// runs out.
class KillUnlessDone {
public:
  // The task must outlive it.
  explicit KillUnlessDone(Task &task) : task_(task) {}
  ~KillUnlessDone() {
    if (!isDone)
      task_.kill();
  }
  KillUnlessDone(const KillUnlessDone &) = delete;
  KillUnlessDone &operator=(const KillUnlessDone &) = delete;

  bool isDone = false;

private:
  Task &task_;
};

// Makes tasks. Thread-safe.
class TaskFactory : public SharedInstance<TaskFactory> {
public:
  virtual ~TaskFactory() = default;
  static TaskFactory &real();

  virtual std::shared_ptr<Task> newTask() = 0;
};

} // namespace NS
