// The surroundings of a running command: the agent, the two streams and the
// choice between text for people and JSON for programs.
#pragma once

#include "Client/Client.h"
#include "CommandLine/AgentAdvance.h"
#include "CommandLine/Alarm.h"
#include "CommandLine/Displayable.h"
#include "CommandLine/JSON.h"
#include "CommandLine/UserTrash.h"
#include "Foundation/Base/Error.h"
#include "Foundation/Terminal/Screen.h"

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

// Thrown by a command for arguments that do not go together.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Thrown when a person was asked and did not say yes.
class NotConfirmed : public std::runtime_error {
public:
  explicit NotConfirmed(const std::string &why = "not confirmed; nothing was done")
      : std::runtime_error(why) {}
};

// The worst has the largest number.
enum ExitStatus : int {
  ExitDone = 0,
  ExitRefused = 1,   // the agent answered no
  ExitUsage = 2,     // the command was not understood or cannot be sent
  ExitNoAnswer = 3,  // there is no agent to answer, or it did not
  ExitStopped = 128, // and the number of the signal
};

// The program's access to its surroundings, which a test replaces.
struct Surroundings {
  std::ostream *out = nullptr;
  std::ostream *err = nullptr;
  std::istream *in = nullptr;
  std::function<std::unique_ptr<Client>(const std::string &bus, const ClientOptions &options)>
      connect;
  bool outIsTerminal = false; // a person watches
  bool errIsTerminal = false;
  bool wantsColours = false; // where there is a terminal
  bool canErase = false;     // so that a line of progress can be taken back
  bool canDraw = false;      // letters beyond ASCII, such as blocks
  std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
  // Asks a person and returns the answer; an empty optional without a person.
  std::function<std::optional<std::string>(const std::string &question)> ask = nullptr;
  // Takes the terminal over. Null where that is not possible.
  std::function<std::unique_ptr<NS::Screen>()> openScreen = nullptr;
  // Moves an item to the Trash of this user. Null where there is none.
  std::function<bool(const std::string &path)> trash = nullptr;
  // The folders of that Trash.
  std::function<std::vector<TrashFolder>()> trashFolders = nullptr;
  // Whether this system has a tool that can be run, and whether it has a file.
  std::function<bool(const std::string &path)> hasTool = nullptr;
  std::function<bool(const std::string &path)> hasFile = nullptr;
  // Rings at the request to stop. Null when there can be no such request.
  std::shared_ptr<Alarm> alarm = nullptr;
};

struct GlobalOptions {
  bool json = false;
  bool quiet = false;
  std::string bus = "system";
  std::optional<double> timeout = std::nullopt; // seconds for the bus, and for each request
};

// Something to show that arrives on another thread while the command waits. That
// thread rings the alarm; the command's thread does the showing.
class News {
public:
  virtual ~News() = default;
  virtual bool isNew() const = 0; // may be called with the alarm's lock held
  virtual void show() = 0;
};

class Session {
public:
  Session(const Surroundings &surroundings, const GlobalOptions &options);
  // Ends an open line.
  ~Session() { beginLine(); }
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  // Connects at the first use, and tries that only once. Throws ClientError.
  Client &agent();
  bool json() const { return options_.json; }
  std::istream *input() const { return surroundings_.in; }

  // The options for a request: the time limit, and the display of its progress.
  RequestOptions requestOptions() const;
  // Waits for the reply, and shows the news before it. On a request to stop
  // it cancels the agent's request and waits for its end. Throws ClientError.
  template <typename Reply> Reply await(const Request<Reply> &request, News *news = nullptr) {
    Alarm::Heeding heeding(*alarm_);
    ringAtEndOf(request);
    waitUntil([&] { return request.isEnded() || isStopped(); }, news);
    if (!request.isEnded()) {
      tellStopping();
      request.cancel();
      waitUntil([&] { return request.isEnded(); }, news);
    }
    endProgress();
    return request.get();
  }
  template <typename Reply> void ringAtEndOf(const Request<Reply> &request) {
    request.then([alarm = alarm_](const auto &) { alarm->ring(); });
  }
  // Blocks until the condition holds, and tests it with each ring of the alarm.
  // Flushes earlier output first, and shows the agent's progress and the news
  // meanwhile. It has shown all news from before the condition held.
  void waitUntil(const std::function<bool()> &condition, News *news = nullptr);

  const std::shared_ptr<Alarm> &alarm() const { return alarm_; }
  bool isStopped() const { return alarm_->stopSignal() != 0; }
  // Tells a person that the command waits for the end, and how to leave at once.
  void tellStopping();
  // How many requests were stopped when a part of them may have been done.
  void noteStoppedInPart() { ++stoppedInPart_; }
  std::size_t stoppedInPart() const { return stoppedInPart_; }

  // One line of the answer, unless JSON or silence is asked for. For a terminal
  // it is made displayable; elsewhere names go as they are.
  void say(const std::string &line);
  // The same with two columns, separated by a tab.
  void say(const std::string &left, const std::string &right);
  // The lines of a longer text.
  void sayLines(std::string_view text);
  // Lines of the answer end with a NUL from now on.
  void endLinesWithNul() { lineEnd_ = '\0'; }
  // One object of the answer, if JSON is asked for; not with silence.
  void sayJSON(const JSONObject &object);
  // One object that reports a failure, if JSON is asked for.
  void sayFailure(const JSONObject &object);
  // A piece of a long answer as it comes, without a line's end of its own; only
  // where a person watches, and not if JSON is asked for. A line that it leaves
  // open ends before anything else is printed.
  void show(std::string_view text);
  // A complaint to standard error, unless JSON is asked for.
  void complain(const std::string &line);
  void complainLines(std::string_view text);
  // The same without the program's name in front.
  void note(const std::string &line);
  // Flushes the output; call it before a wait.
  void flush();
  // Shows the progress of a long work, on a line that the next output replaces;
  // only if a person watches the errors, not on an open line, and not more often
  // than an eye can see.
  void showProgress(const std::string &line);
  // The same for the work on one item.
  void showAdvance(const RequestProgress &progress);
  // The text before the agent's progress with one of many requests.
  void setProgressOfPaths(const std::string &line) { progressOfPaths_ = line; }
  void endProgress();
  // Whether a person watches the answer.
  bool isWatched() const {
    return surroundings_.outIsTerminal && !options_.json && !options_.quiet;
  }
  bool canDraw() const { return surroundings_.canDraw; }
  std::unique_ptr<NS::Screen> openScreen() const {
    return surroundings_.openScreen ? surroundings_.openScreen() : nullptr;
  }
  bool hasTrash() const { return surroundings_.trash != nullptr; }
  std::vector<TrashedItem> trashedItems() const {
    return surroundings_.trashFolders ? kw::trashedItems(surroundings_.trashFolders())
                                      : std::vector<TrashedItem>();
  }
  bool trash(const std::string &path) const { return hasTrash() && surroundings_.trash(path); }
  std::chrono::steady_clock::time_point now() const { return surroundings_.now(); }
  // Whether there seems to be a person to ask.
  bool canAsk(bool assumeYes) const { return !assumeYes && surroundings_.ask != nullptr; }
  // Asks before work that cannot be undone. Returns if the answer is yes, if
  // assumeYes is set, and without a person to ask; else throws NotConfirmed.
  // The lines come above the question.
  void confirm(const std::string &question, bool assumeYes,
               const std::vector<std::string> &lines = {});
  // Asks the person to type the text as it is displayed. Throws NotConfirmed
  // unless it is typed, and without a person to ask.
  void confirmTyped(const std::string &question, const std::string &text);

private:
  ClientOptions clientOptions() const;
  std::optional<std::chrono::milliseconds> timeLimit() const;
  bool showsProgress() const;
  // Ends the line that progress or a piece of an answer has left.
  void beginLine();
  std::optional<std::string> ask(const std::string &question);

  std::string forOut(std::string_view text) const;
  std::string forErr(std::string_view text) const;

  const Surroundings &surroundings_;
  const GlobalOptions &options_;
  const std::shared_ptr<Alarm> alarm_;
  std::unique_ptr<Client> agent_;
  std::optional<ClientError> connectFailure_;
  char lineEnd_ = '\n';
  std::size_t stoppedInPart_ = 0;
  bool progressIsShown_ = false;
  bool lineIsOpen_ = false; // by a piece of an answer, on the terminal
  AdvanceRate rate_;
  std::string progressOfPaths_; // such as "3 of 60"
  const std::shared_ptr<AgentAdvance> advance_;
  std::chrono::steady_clock::time_point lastProgress_;
};

// The path as the agent must get it: a relative one is taken from this
// program's working folder, nothing else is changed. Throws UsageError when
// that folder is gone.
std::string absolutePath(const std::string &path);

JSONObject jsonOfError(const NS::Error &error);
JSONObject jsonOfError(const ClientError &error);
// For a failure that came without an error.
JSONObject jsonOfReason(const std::string &reason = "the agent gave no reason",
                        const char *kind = "failed");

} // namespace kw
