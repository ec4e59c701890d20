// Tasks that run a program of the test's in place of the requested one, and
// record the request.
#pragma once

#include "Foundation/Processes/Task.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kwtest {

class SubstitutedTasks : public NS::TaskFactory {
public:
  // With the path of the program; it gets the arguments that were asked for.
  explicit SubstitutedTasks(std::string program) : program_(std::move(program)) {}

  std::shared_ptr<NS::Task> newTask() override { return std::make_shared<Substituted>(*this); }

  // Of each launch: the path, then the arguments.
  std::vector<std::vector<std::string>> commandLines() const {
    std::lock_guard lock(mutex_);
    return commandLines_;
  }

  // The pipe that the last task was given for its output, null once it is gone.
  std::shared_ptr<NS::Pipe> standardOutput() const {
    std::lock_guard lock(mutex_);
    return standardOutput_.lock();
  }

private:
  class Substituted final : public NS::Task {
  public:
    explicit Substituted(SubstitutedTasks &owner) : owner_(owner) {}

    void setLaunchPath(std::string path) override { path_ = std::move(path); }
    void setArguments(std::vector<std::string> arguments) override {
      arguments_ = arguments;
      real_->setArguments(std::move(arguments));
    }
    void setStandardInput(std::shared_ptr<NS::Pipe> pipe) override {
      real_->setStandardInput(std::move(pipe));
    }
    void setStandardOutput(std::shared_ptr<NS::Pipe> pipe) override {
      owner_.record(pipe);
      real_->setStandardOutput(std::move(pipe));
    }
    void setStandardError(std::shared_ptr<NS::Pipe> pipe) override {
      real_->setStandardError(std::move(pipe));
    }
    void setTimeLimit(std::chrono::milliseconds limit) override { real_->setTimeLimit(limit); }
    void launch() override {
      owner_.record(path_, arguments_);
      real_->setLaunchPath(owner_.program_);
      real_->launch();
    }
    bool isRunning() override { return real_->isRunning(); }
    void waitUntilExit() override { real_->waitUntilExit(); }
    void kill() override { real_->kill(); }
    std::optional<std::string> readOutput(std::size_t sizeLimit) override {
      return real_->readOutput(sizeLimit);
    }
    int terminationStatus() override { return real_->terminationStatus(); }
    NS::TaskTerminationReason terminationReason() override { return real_->terminationReason(); }
    int processIdentifier() const override { return real_->processIdentifier(); }

  private:
    SubstitutedTasks &owner_;
    std::shared_ptr<NS::Task> real_ = owner_.real_.newTask();
    std::string path_;
    std::vector<std::string> arguments_;
  };

  void record(const std::string &path, const std::vector<std::string> &arguments) {
    std::vector<std::string> line = {path};
    line.insert(line.end(), arguments.begin(), arguments.end());
    std::lock_guard lock(mutex_);
    commandLines_.push_back(std::move(line));
  }

  void record(const std::shared_ptr<NS::Pipe> &standardOutput) {
    std::lock_guard lock(mutex_);
    standardOutput_ = standardOutput;
  }

  NS::TaskFactory &real_ = NS::TaskFactory::shared();
  const std::string program_;
  mutable std::mutex mutex_;
  std::vector<std::vector<std::string>> commandLines_;
  std::weak_ptr<NS::Pipe> standardOutput_;
};

} // namespace kwtest
