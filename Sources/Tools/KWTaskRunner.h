// Runs the system's tools for the agent: one program with its arguments
// unchanged, no shell. Returns its output and its status.
//
// Every call but launchTaskWithNoReply blocks until the tool has ended, without
// a time limit. It has no state, and several threads may use it at once. Text
// goes both ways as UTF-8. A capture of only white space, or with invalid
// UTF-8, is nil; any other is the tool's output, untrimmed. The only platform
// exception that leaves it is one that a completion raised when it was told of
// a failure.
#pragma once

#include "Foundation/Base/Error.h"
#include "Foundation/Base/SharedInstance.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kw {

class KWTaskRunner : public NS::SharedInstance<KWTaskRunner> {
public:
  using Arguments = std::vector<std::string>;
  using Output = std::optional<std::string>;
  // Called on the calling thread before the call returns. A status of -1 with
  // an error means that the tool could not be run.
  using CompletionHandler =
      std::function<void(const Output &output, long long status, const Output &errorOutput,
                         const std::optional<NS::Error> &error)>;

  virtual ~KWTaskRunner() = default;
  static KWTaskRunner &real();

  // Runs the tool and passes the result to the completion. Without a standard
  // input the tool has the agent's; with one it sees no end of it until the
  // call returns. Reads output to its end before error output.
  //
  // A path that is not executable leads to two calls of the completion: with
  // the localized text that the task cannot be launched, then with the reason
  // of the launch's failure. A completion that raises is likewise called again
  // with the reason that it gave. Errors are of kTaskRunnerErrorDomain, code 0.
  virtual void launchTask(const std::string &path, const Arguments &arguments,
                          const std::optional<std::string> &standardInput,
                          const CompletionHandler &completion) const;
  virtual void launchTask(const std::string &path, const Arguments &arguments,
                          const CompletionHandler &completion) const;

  // Returns the tool's standard output, or its error output on request.
  // Suppressed error output is discarded unread; error output that is neither
  // suppressed nor requested goes to the agent's. Writes the result code (null
  // when not wanted) only when the tool has run to its end. Logs a path that is
  // not executable and returns nil for it. Throws NS::ResourceShortage when this
  // process lacks the descriptors or the memory to start the tool: a tool that did
  // not run has not said that all is well.
  virtual Output getOutput(const std::string &path, const Arguments &arguments,
                           bool suppressErrorOutput, bool useErrorOutputAsStd,
                           long long *resultCode) const;
  // The next two throw as getOutput does. With suppression returns the standard
  // output, without it the error output.
  virtual Output launchTaskAndGetOutput(const std::string &path, const Arguments &arguments,
                                        bool suppressErrorOutput) const;
  // Returns the tool's error output.
  virtual Output launchTaskAndGetOutput(const std::string &path, const Arguments &arguments) const;

  // Returns the exit status or the number of the signal that ended the tool.
  // Returns 0 for a path that is not executable, without a line in the log, and
  // for a launch that fails. Does not read the output of a redirected stream: a
  // tool that fills a pipe never ends.
  virtual long long launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                      const Arguments &arguments,
                                                      bool suppressErrorOutput) const;
  virtual long long launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                      const Arguments &arguments) const;

  // Starts the tool on the agent's own streams and does not wait. Returns 0,
  // unless the tool has ended in that instant.
  virtual long long launchTaskWithNoReply(const std::string &path,
                                          const Arguments &arguments) const;
};

} // namespace kw
