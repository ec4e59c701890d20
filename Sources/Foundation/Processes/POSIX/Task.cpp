// A task: its settings, its launch, and its outcome.
#include "Foundation/Processes/Task.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Descriptors/Internal/Descriptors.h"
#include "Foundation/Processes/POSIX/ChildProcess.h"
#include "Foundation/Text/PathUtilities.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace NS {
namespace {

[[noreturn]] void refuse(const std::string &reason) {
  throw Exception(InvalidArgumentException, reason);
}

// Such a failure says nothing about the program.
bool isShortage(int errnum) {
  return isExhaustion(errnum) || errnum == EAGAIN; // no further process is allowed
}

std::string launchFailure(int errnum) {
  std::string cause = std::generic_category().message(errnum);
  switch (errnum) {
  case ENOENT:
  case ENOTDIR:
  case EACCES:
  case EISDIR:
  case ELOOP:
  case ENAMETOOLONG:
    return "launch path not accessible (" + cause + ")";
  default:
    return "launch failed (" + cause + ")";
  }
}

// Collects all data of a pipe until a child's end.
class OutputReader {
public:
  OutputReader(int pipe, ChildProcess &child, std::size_t sizeLimit)
      : pipe_(pipe), child_(child), exit_(child.openExitDescriptor()), sizeLimit_(sizeLimit) {}

  std::optional<std::string> read() {
    Step step = Step::Goes;
    while (step == Step::Goes)
      step = next();
    return step == Step::Done ? std::optional(std::move(output_)) : std::nullopt;
  }

private:
  enum class Step { Goes, Done, Failed };

  Step next() {
    std::optional<ChildOutcome> outcome = child_.outcome();
    if (isOverdue() && (!outcome || outcome->signalled))
      return Step::Failed;
    // The pipe holds all output of a child that has ended.
    bool hasEnded = outcome.has_value();
    int timeout = hasEnded ? 0 : patience();
    if (descriptors::waitForReading(pipe_, hasEnded ? -1 : exit_.get(), timeout).first)
      return readSome();
    return hasEnded ? Step::Done : Step::Goes;
  }

  Step readSome() {
    std::array<char, 4096> buffer;
    ssize_t count = retrying([&] { return ::read(pipe_, buffer.data(), buffer.size()); });
    if (count < 0)
      return Step::Failed;
    // At the deadline the data may end because the child was killed: its outcome
    // tells.
    if (count == 0)
      return isOverdue() ? Step::Goes : Step::Done;
    output_.append(buffer.data(), static_cast<std::size_t>(count));
    return output_.size() > sizeLimit_ ? Step::Failed : Step::Goes;
  }

  bool isOverdue() const { return child_.deadline() && millisecondsUntil(*child_.deadline()) == 0; }
  // The time to wait in milliseconds, -1 without a limit. At intervals when the
  // child has no exit descriptor.
  int patience() const {
    constexpr int askingInterval = 20;
    int left = child_.deadline() ? millisecondsUntil(*child_.deadline()) : -1;
    if (exit_)
      return left;
    return left < 0 ? askingInterval : std::min(left, askingInterval);
  }

  const int pipe_;
  ChildProcess &child_;
  const Descriptor exit_; // that of the child; may be empty
  const std::size_t sizeLimit_;
  std::string output_;
};

class ProcessTask final : public Task {
public:
  void setLaunchPath(std::string path) override { launchPath_ = std::move(path); }
  void setArguments(std::vector<std::string> arguments) override {
    arguments_ = std::move(arguments);
  }
  void setStandardInput(std::shared_ptr<Pipe> pipe) override { pipes_[0] = std::move(pipe); }
  void setStandardOutput(std::shared_ptr<Pipe> pipe) override { pipes_[1] = std::move(pipe); }
  void setStandardError(std::shared_ptr<Pipe> pipe) override { pipes_[2] = std::move(pipe); }

  void setTimeLimit(std::chrono::milliseconds limit) override { timeLimit_ = limit; }

  void launch() override;
  bool isRunning() override { return child_ && !child_->outcome(); }
  void waitUntilExit() override { launched().waitUntilEnd(); }
  void kill() override {
    launched().kill();
    child_->waitUntilEnd();
  }
  std::optional<std::string> readOutput(std::size_t sizeLimit) override;
  int terminationStatus() override { return outcome().status; }
  TaskTerminationReason terminationReason() override {
    return outcome().signalled ? TaskTerminationReason::UncaughtSignal
                               : TaskTerminationReason::Exit;
  }
  int processIdentifier() const override { return child_ ? child_->identifier() : 0; }

private:
  // The child's end of a stream's pipe.
  FileHandle &childEnd(std::size_t stream) const {
    return stream == 0 ? pipes_[stream]->fileHandleForReading()
                       : pipes_[stream]->fileHandleForWriting();
  }
  void checkSettings() const;
  descriptors::Program program() const;
  ChildProcess &launched() const {
    if (!child_)
      refuse("task not launched");
    return *child_;
  }
  ChildOutcome outcome() const {
    std::optional<ChildOutcome> outcome = launched().outcome();
    if (!outcome)
      refuse("task still running");
    return *outcome;
  }

  std::string launchPath_;
  std::vector<std::string> arguments_;
  std::array<std::shared_ptr<Pipe>, 3> pipes_; // by descriptor number
  std::optional<std::chrono::milliseconds> timeLimit_;
  std::shared_ptr<ChildProcess> child_; // null until launched
};

void ProcessTask::checkSettings() const {
  if (child_)
    refuse("task already launched");
  if (launchPath_.empty())
    refuse("launch path not set");
  if (holdsNul(launchPath_))
    refuse("launch path contains a NUL byte");
  // The contents of the working directory must not decide which program runs.
  if (launchPath_.front() != '/')
    refuse("launch path not absolute");
  for (std::size_t index = 0; index < arguments_.size(); ++index)
    if (holdsNul(arguments_[index]))
      refuse("argument " + std::to_string(index + 1) + " contains a NUL byte");
  for (std::size_t stream = 0; stream < pipes_.size(); ++stream)
    if (pipes_[stream] && childEnd(stream).fileDescriptor() < 0)
      refuse("pipe of standard stream " + std::to_string(stream) + " is closed");
}

descriptors::Program ProcessTask::program() const {
  descriptors::Program program;
  program.path = launchPath_;
  program.arguments.reserve(arguments_.size() + 1);
  program.arguments.push_back(launchPath_);
  program.arguments.insert(program.arguments.end(), arguments_.begin(), arguments_.end());
  for (std::size_t stream = 0; stream < pipes_.size(); ++stream)
    if (pipes_[stream])
      program.standardStreams[stream] = childEnd(stream).fileDescriptor();
  return program;
}

void ProcessTask::launch() {
  checkSettings();
  // Every step that can fail comes before the child exists: from then on it
  // must be adopted.
  descriptors::Program wanted = program();
  auto child = std::make_shared<ChildProcess>();
  ChildSlot slot = {child};
  prepareToAdopt();
  int identifier = 0;
  if (int failure = descriptors::spawn(wanted, identifier)) {
    if (isShortage(failure))
      throw ResourceShortage(launchFailure(failure));
    refuse(launchFailure(failure));
  }
  child->setIdentifier(identifier);
  if (timeLimit_)
    child->setDeadline(ChildProcess::Clock::now() + *timeLimit_);
  child_ = std::move(child);
  adopt(std::move(slot));
  for (std::size_t stream = 0; stream < pipes_.size(); ++stream)
    if (pipes_[stream])
      childEnd(stream).closeFile();
}

std::optional<std::string> ProcessTask::readOutput(std::size_t sizeLimit) {
  ChildProcess &child = launched();
  if (!pipes_[STDOUT_FILENO])
    refuse("standard output is no pipe");
  int pipe = pipes_[STDOUT_FILENO]->fileHandleForReading().fileDescriptor();
  KillUnlessDone reading(*this);
  auto output = OutputReader(pipe, child, sizeLimit).read();
  reading.isDone = output.has_value();
  return output;
}

class ProcessTaskFactory final : public TaskFactory {
public:
  std::shared_ptr<Task> newTask() override { return std::make_shared<ProcessTask>(); }
};

} // namespace

std::shared_ptr<Task> Task::create() {
  return TaskFactory::shared().newTask();
}

TaskFactory &TaskFactory::real() {
  return lastingInstance<ProcessTaskFactory>();
}

} // namespace NS
