// The one way in which the agent runs the system's tools: one program, its
// arguments as they are, no shell, and what it wrote and how it ended.
//
// Every call but launchTaskWithNoReply blocks until the tool has ended, however
// long that takes. No state; all may run on several threads at once. Text goes
// both ways as UTF-8. A capture without anything but white space, or that is no
// UTF-8 as a whole, is nil; any other is what the tool wrote, untrimmed. Of the
// platform's exceptions none comes out but one that a completion raised when it
// was told of a failure.
#pragma once

#include "Foundation/Error.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kw {

class KWTaskRunner {
public:
  using Arguments = std::vector<std::string>;
  using Output = std::optional<std::string>;
  // Called on the calling thread before the call returns. A status of -1 with
  // an error says that the tool could not be run.
  using CompletionHandler =
      std::function<void(const Output &output, long long status, const Output &errorOutput,
                         const std::optional<NS::Error> &error)>;

  virtual ~KWTaskRunner() = default;
  static KWTaskRunner &shared();
  static KWTaskRunner *exchangeShared(KWTaskRunner *replacement);

  // Runs the tool and tells the completion what became of it. Without a
  // standard input the tool has the agent's; with one it sees no end of it
  // until the call returns. Output is read to its end before error output.
  //
  // A path that is not executable leads to two calls of the completion: with
  // the localized text that the task cannot be launched, then with the reason
  // of the launch's failure. Likewise a completion that raises is called again
  // with the reason that it gave. Errors are of kTaskRunnerErrorDomain, code 0.
  virtual void launchTask(const std::string &path, const Arguments &arguments,
                          const std::optional<std::string> &standardInput,
                          const CompletionHandler &completion) const;
  virtual void launchTask(const std::string &path, const Arguments &arguments,
                          const CompletionHandler &completion) const;

  // What the tool wrote to its standard output, or to its error output where
  // that is asked for. Suppressed error output is discarded unread; neither
  // suppressed nor used it is the agent's. The result code (null when not
  // wanted) is written only when the tool has run to its end. A path that is
  // not executable is logged and gives nil.
  virtual Output getOutput(const std::string &path, const Arguments &arguments,
                           bool suppressErrorOutput, bool useErrorOutputAsStd,
                           long long *resultCode) const;
  // Suppressing gives the standard output, not suppressing the error output.
  virtual Output launchTaskAndGetOutput(const std::string &path, const Arguments &arguments,
                                        bool suppressErrorOutput) const;
  // The tool's error output.
  virtual Output launchTaskAndGetOutput(const std::string &path, const Arguments &arguments) const;

  // The exit status or the number of the signal that ended the tool. 0 for a
  // path that is not executable, without a word in the log, and for a launch
  // that fails. What the tool writes to a redirected stream is not read: one
  // that fills a pipe never ends.
  virtual long long launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                      const Arguments &arguments,
                                                      bool suppressErrorOutput) const;
  virtual long long launchTaskAndGetTermStatusWithCmd(const std::string &path,
                                                      const Arguments &arguments) const;

  // Starts the tool on the agent's own streams and does not wait: 0, unless it
  // has ended in that instant.
  virtual long long launchTaskWithNoReply(const std::string &path,
                                          const Arguments &arguments) const;
};

} // namespace kw
