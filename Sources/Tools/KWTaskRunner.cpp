// Starts a tool with pipes as its streams, reads them, and waits for its end.
#include "Tools/KWTaskRunner.h"

#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Processes/Task.h"
#include "Foundation/Text/Unicode.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Trees/FileManager.h"
#include "Protocol/Identity.h"

namespace kw {
namespace {

using Output = KWTaskRunner::Output;

// In seconds: the contract's 0.01, which is a single-precision number.
constexpr double pollingInterval = 0.01F;

// The pipes of one run. Their reading ends close with it, the error output's
// first; the input's writing end stays open until then.
struct RunPipes {
  RunPipes() = default;
  RunPipes(const RunPipes &) = delete;
  RunPipes &operator=(const RunPipes &) = delete;
  ~RunPipes() {
    for (const auto &pipe : {errors, output})
      if (pipe)
        pipe->fileHandleForReading().closeFile();
  }

  void open() {
    output = NS::Pipe::pipe();
    errors = NS::Pipe::pipe();
  }

  std::shared_ptr<NS::Pipe> output;
  std::shared_ptr<NS::Pipe> errors;
  std::shared_ptr<NS::Pipe> input;
};

bool isExecutable(const std::string &path) {
  return NS::FileManager::defaultManager().isExecutableFileAtPath(path);
}

void logNotExecutable(const std::string &path) {
  NS::Log("Unable to execute %@. File doesn't seem to be executable.", path);
}

void logFailure(const std::string &path, const KWTaskRunner::Arguments &arguments,
                const std::string &reason) {
  NS::Log("Error while invoking command %@ with args %@ : %@", path, arguments, reason);
}

NS::Error taskError(std::string description) {
  return NS::Error(kTaskRunnerErrorDomain, 0,
                   NS::userInfoWith(NS::LocalizedDescriptionKey, std::move(description)));
}

NS::Error launchError() {
  return taskError(NS::Bundle::mainBundle().localizedStringForKey(
      "ErrorDescRemoving_FailedToLaunchTask", "", "Errors"));
}

std::shared_ptr<NS::Task> taskWithPath(const std::string &path,
                                       const KWTaskRunner::Arguments &arguments) {
  std::shared_ptr<NS::Task> task = NS::Task::create();
  task->setLaunchPath(path);
  task->setArguments(arguments);
  return task;
}

Output readCapture(NS::Pipe &pipe) {
  std::string text = pipe.fileHandleForReading().readDataToEndOfFile();
  if (!NS::isWellFormedUTF8(text) || trimWhiteSpace(text).empty())
    return std::nullopt;
  return text;
}

void waitForEnd(NS::Task &task) {
  while (task.isRunning())
    NS::Thread::shared().sleepForTimeInterval(pollingInterval);
}

// Launches the tool, does the work with it, and waits for its end. An exception
// that the task runner reports leaves the tool at its work. Any other, such as a
// lack of memory, kills the tool, so that it does not run on unwatched. After the
// tool's end there is nothing to kill.
template <typename Work> void runToEnd(NS::Task &task, const Work &work) {
  task.launch();
  NS::KillUnlessDone run(task);
  try {
    work();
    waitForEnd(task);
  } catch (const NS::Exception &) {
    run.isDone = true;
    throw;
  }
}

// Returns the status of a tool that this runs. A missing tool counts as done, and so
// does one whose run fails, with a line in the log: callers rely on it.
template <typename Run>
long long statusOrDone(const std::string &path, const KWTaskRunner::Arguments &arguments,
                       const Run &run) {
  try {
    if (!isExecutable(path))
      return 0;
    std::shared_ptr<NS::Task> task = taskWithPath(path, arguments);
    run(*task);
    return task->terminationStatus();
  } catch (const NS::Exception &exception) {
    logFailure(path, arguments, exception.reason());
  } catch (const NS::ResourceShortage &shortage) {
    logFailure(path, arguments, shortage.what());
  }
  return 0;
}

// The part of a run with completion that may raise. The error output outlives
// it, for the failure's report.
void runTask(const std::string &path, const KWTaskRunner::Arguments &arguments,
             const std::optional<std::string> &standardInput,
             const KWTaskRunner::CompletionHandler &completion, RunPipes &pipes,
             Output &errorOutput) {
  pipes.open();
  pipes.input = NS::Pipe::pipe();
  if (!isExecutable(path)) {
    logNotExecutable(path);
    if (completion)
      completion(std::nullopt, -1, std::nullopt, launchError());
    // The launch still takes place, since it gives the exact reason.
  }
  std::shared_ptr<NS::Task> task = taskWithPath(path, arguments);
  task->setStandardOutput(pipes.output);
  task->setStandardError(pipes.errors);
  if (standardInput)
    task->setStandardInput(pipes.input);
  Output output;
  runToEnd(*task, [&] {
    if (standardInput)
      pipes.input->fileHandleForWriting().writeData(*standardInput);
    output = readCapture(*pipes.output);
    errorOutput = readCapture(*pipes.errors);
  });
  long long status = task->terminationStatus();
  if (completion)
    completion(output, status, errorOutput, std::nullopt);
}

} // namespace

KWTaskRunner &KWTaskRunner::real() {
  return NS::lastingInstance<KWTaskRunner>();
}

void KWTaskRunner::launchTask(const std::string &path, const Arguments &arguments,
                              const std::optional<std::string> &standardInput,
                              const CompletionHandler &completion) const {
  RunPipes pipes;
  Output errorOutput;
  auto fail = [&](const std::string &reason) {
    logFailure(path, arguments, reason);
    if (completion)
      completion(std::nullopt, -1, errorOutput, taskError(reason));
  };
  try {
    runTask(path, arguments, standardInput, completion, pipes, errorOutput);
  } catch (const NS::Exception &exception) {
    fail(exception.reason());
  } catch (const NS::ResourceShortage &shortage) { // the completion takes an error
    fail(shortage.what());
  }
}

void KWTaskRunner::launchTask(const std::string &path, const Arguments &arguments,
                              const CompletionHandler &completion) const {
  launchTask(path, arguments, std::nullopt, completion);
}

Output KWTaskRunner::getOutput(const std::string &path, const Arguments &arguments,
                               bool suppressErrorOutput, bool useErrorOutputAsStd,
                               long long *resultCode) const {
  RunPipes pipes;
  Output output;
  try {
    if (!isExecutable(path)) {
      logNotExecutable(path);
      return std::nullopt;
    }
    pipes.open();
    std::shared_ptr<NS::Task> task = taskWithPath(path, arguments);
    task->setStandardOutput(pipes.output);
    if (suppressErrorOutput || useErrorOutputAsStd)
      task->setStandardError(pipes.errors);
    runToEnd(*task,
             [&] { output = readCapture(useErrorOutputAsStd ? *pipes.errors : *pipes.output); });
    long long status = task->terminationStatus();
    if (resultCode)
      *resultCode = status;
  } catch (const NS::Exception &exception) {
    logFailure(path, arguments, exception.reason());
  }
  return output;
}

Output KWTaskRunner::launchTaskAndGetOutput(const std::string &path, const Arguments &arguments,
                                            bool suppressErrorOutput) const {
  return getOutput(path, arguments, suppressErrorOutput, !suppressErrorOutput, nullptr);
}

Output KWTaskRunner::launchTaskAndGetOutput(const std::string &path,
                                            const Arguments &arguments) const {
  return launchTaskAndGetOutput(path, arguments, false);
}

long long KWTaskRunner::launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                          const Arguments &arguments,
                                                          bool suppressErrorOutput) const {
  RunPipes pipes;
  return statusOrDone(path, arguments, [&](NS::Task &task) {
    pipes.open();
    task.setStandardOutput(pipes.output);
    if (suppressErrorOutput)
      task.setStandardError(pipes.errors);
    runToEnd(task, [] {});
  });
}

long long KWTaskRunner::launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                          const Arguments &arguments) const {
  return launchTaskAndGetTermStatusWithCmd(path, arguments, false);
}

long long KWTaskRunner::launchTaskWithNoReply(const std::string &path,
                                              const Arguments &arguments) const {
  return statusOrDone(path, arguments, [](NS::Task &task) { task.launch(); });
}

} // namespace kw
