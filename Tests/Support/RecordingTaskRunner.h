// A task runner that runs no tool: it records each call and gives the answers
// that the test sets.
#pragma once

#include "Tools/KWTaskRunner.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kwtest {

class RecordingTaskRunner : public kw::KWTaskRunner {
public:
  struct Run {
    std::vector<std::string> commandLine; // the path, then the arguments
    bool suppressErrorOutput = false;
    std::optional<std::string> standardInput;
    friend bool operator==(const Run &, const Run &) = default;
  };

  // The statuses that it returns, by the tool's path.
  std::map<std::string, long long> statuses; // 0 when not set
  std::map<std::string, Output> outputs;     // nil when not set
  // Called for each run, before it is answered.
  std::function<void(const Run &)> onRun;
  // The outcome of a run with completion; without it, output and status from
  // above.
  std::function<void(const CompletionHandler &)> onCompletion;

  std::vector<Run> runs() const {
    std::lock_guard lock(mutex_);
    return runs_;
  }
  std::vector<std::vector<std::string>> commandLines() const {
    std::vector<std::vector<std::string>> lines;
    for (const Run &run : runs())
      lines.push_back(run.commandLine);
    return lines;
  }

  using kw::KWTaskRunner::launchTask;
  using kw::KWTaskRunner::launchTaskAndGetOutput;
  using kw::KWTaskRunner::launchTaskAndGetTermStatusWithCmd;

  void launchTask(const std::string &path, const Arguments &arguments,
                  const std::optional<std::string> &standardInput,
                  const CompletionHandler &completion) const override {
    record(path, arguments, false, standardInput);
    if (onCompletion)
      onCompletion(completion);
    else if (completion)
      completion(find(outputs, path), find(statuses, path), std::nullopt, std::nullopt);
  }
  Output getOutput(const std::string &path, const Arguments &arguments, bool suppressErrorOutput,
                   bool, long long *resultCode) const override {
    record(path, arguments, suppressErrorOutput, std::nullopt);
    if (resultCode)
      *resultCode = find(statuses, path);
    return find(outputs, path);
  }
  long long launchTaskAndGetTermStatusWithCmd(const std::string &path, const Arguments &arguments,
                                              bool suppressErrorOutput) const override {
    record(path, arguments, suppressErrorOutput, std::nullopt);
    return find(statuses, path);
  }
  long long launchTaskWithNoReply(const std::string &path,
                                  const Arguments &arguments) const override {
    record(path, arguments, false, std::nullopt);
    return 0;
  }

private:
  template <typename Value>
  static Value find(const std::map<std::string, Value> &map, const std::string &path) {
    auto found = map.find(path);
    return found == map.end() ? Value{} : found->second;
  }
  void record(const std::string &path, const Arguments &arguments, bool suppressErrorOutput,
              const std::optional<std::string> &standardInput) const {
    Run run{{path}, suppressErrorOutput, standardInput};
    run.commandLine.insert(run.commandLine.end(), arguments.begin(), arguments.end());
    {
      std::lock_guard lock(mutex_);
      runs_.push_back(run);
    }
    if (onRun)
      onRun(run);
  }

  mutable std::mutex mutex_;
  mutable std::vector<Run> runs_;
};

} // namespace kwtest
