// What a command works with while it runs: the agent, the two streams and the
// choice between text for people and JSON for programs.
#pragma once

#include "Client/Client.h"
#include "CommandLine/JSON.h"
#include "Foundation/Error.h"

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kw {

// Thrown by a command for arguments that do not go together.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Thrown when a person was asked and did not say yes.
class NotConfirmed : public std::runtime_error {
public:
  NotConfirmed() : std::runtime_error("not confirmed; nothing was done") {}
};

enum ExitStatus : int {
  ExitDone = 0,
  ExitRefused = 1,  // the agent answered no
  ExitUsage = 2,    // the command was not understood or cannot be sent
  ExitNoAnswer = 3, // there is no agent to answer, or it did not
};

// What the program takes from its surroundings; a test has others.
struct Surroundings {
  std::ostream *out = nullptr;
  std::ostream *err = nullptr;
  std::istream *in = nullptr;
  std::function<std::unique_ptr<Client>(const std::string &bus)> connect;
  bool inIsTerminal = false;  // a person can be asked
  bool outIsTerminal = false; // a person watches
  bool errIsTerminal = false;
  bool wantsColours = false; // where there is a terminal
  std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

struct GlobalOptions {
  bool json = false;
  bool quiet = false;
  std::string bus = "system";
  std::optional<double> timeout = std::nullopt; // seconds for each request
};

class Session {
public:
  Session(const Surroundings &surroundings, const GlobalOptions &options)
      : surroundings_(surroundings), options_(options) {}

  // Connects at the first use. Throws ClientError.
  Client &agent();
  bool json() const { return options_.json; }
  std::istream *input() const { return surroundings_.in; }

  // For each request.
  RequestOptions requestOptions() const;

  // One line of the answer, unless JSON or silence is asked for.
  void say(const std::string &line);
  // One object of the answer, if JSON is asked for; not with silence.
  void sayJSON(const JSONObject &object);
  // One object that tells of a failure, if JSON is asked for.
  void sayFailure(const JSONObject &object);
  // A piece of a long answer as it comes, without a line's end of its own; only
  // where a person watches, and not if JSON is asked for.
  void show(std::string_view text);
  // A complaint to standard error, unless JSON is asked for.
  void complain(const std::string &line);
  // What was said reaches its readers now; to be called before a wait.
  void flush();
  // How far a long work has come, on a line that gives way to any other; only
  // where a person watches the errors, and not more often than an eye can see.
  void showProgress(const std::string &line);
  void endProgress();
  // Asks before what cannot be undone. Returns if the answer is yes, if
  // assumeYes is set, and where nobody can be asked; else throws NotConfirmed.
  void confirm(const std::string &question, bool assumeYes);

private:
  const Surroundings &surroundings_;
  const GlobalOptions &options_;
  std::unique_ptr<Client> agent_;
  bool progressIsShown_ = false;
  std::chrono::steady_clock::time_point lastProgress_;
};

// The path as the agent must get it: a relative one is taken from this
// program's working folder, nothing else is changed.
std::string absolutePath(const std::string &path);

// Text from elsewhere for a terminal: control characters are shown, not sent.
std::string displayable(std::string_view text);

JSONObject jsonOfError(const NS::Error &error);
JSONObject jsonOfError(const ClientError &error);
// For a failure that came without an error.
JSONObject jsonOfReason(const std::string &reason = "the agent gave no reason");

} // namespace kw
