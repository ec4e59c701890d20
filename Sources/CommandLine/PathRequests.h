// Commands that ask the agent the same for each of many paths: where the paths
// come from, and how their requests overlap.
#pragma once

#include "CommandLine/Command.h"
#include "CommandLine/Look.h"
#include "CommandLine/PathReader.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

// The paths of the arguments.
struct PathArguments {
  std::vector<std::string> given;
  bool fromStandardInput = false;
};

// Declares PATH... and -0.
std::shared_ptr<PathArguments> declarePaths(Arguments &arguments);

// Throws UsageError if no path is given.
void requirePaths(const PathArguments &arguments);

// The paths one after the other, absolute.
class PathSource {
public:
  // The paths that replace one path.
  using Expand = std::function<std::vector<std::string>(const std::string &path)>;

  PathSource(Session &session, const PathArguments &arguments, Expand expand = nullptr);

  // Whether next() would not wait for standard input.
  bool isReady() const;
  // Empty when there is no further path. Throws ClientError of kind BadArgument
  // for an invalid path; the next call goes on after it.
  std::optional<std::string> next();
  // The number of paths, if it is known before they are read.
  std::optional<std::size_t> count() const;
  // Reads standard input to its end, and returns the paths that next() will give.
  std::vector<std::string> readAhead();
  // The command will not wait for standard input any more: the paths so far are
  // all.
  void stopReading();

private:
  std::optional<PathReader::Item> nextItem();
  std::optional<std::string> nextGiven();

  std::deque<PathReader::Item> items_; // from the arguments, or read ahead
  std::optional<std::size_t> count_;
  std::unique_ptr<PathReader> reader_;
  Expand expand_;
  std::deque<std::string> expanded_;
};

JSONObject pathRequest(const char *command, const std::string &path);

// For commands that need no agent: reports on each path, and returns the worst
// status. Once the command was stopped, reports the further paths as skipped.
int tellForEachPath(Session &session, const char *command, PathSource &paths,
                    const std::function<int(const std::string &path)> &tell);

// The most requests that are made and not yet reported. The client sends fewer
// at a time, so that it never waits for this program's output.
inline constexpr std::size_t mostPathsAsked = 256;

// The reason why no request was made for a path.
enum class Skipped { No, AfterNoAnswer, AfterStop };

// Reports the outcome for a path without a request, and returns the exit
// status.
using Telling = std::function<int(Session &session, JSONObject request)>;

// Handles a path without a request if it can, and returns the report on it; null
// if the agent must do the work.
using Here = std::function<Telling(const std::string &path)>;

// Combines two: the first that handles a path counts.
inline Here firstOf(const Here &first, const Here &second) {
  return [first, second](const std::string &path) {
    Telling told = first(path);
    return told || !second ? told : second(path);
  };
}

// A path and the request that was made for it, or the reason why none was.
template <typename Reply> struct AskedPath {
  std::string path;
  Telling tellHere = nullptr;          // reports work that was done without a request
  Presence before = Presence::Unknown; // as seen before the request was made
  Request<Reply> request;
  std::optional<ClientError> failure;
  Skipped skipped = Skipped::No;

  bool isEnded() const { return !request.isValid() || request.isEnded(); }
  const Reply &reply() const {
    if (failure)
      throw ClientError(*failure);
    return request.wait().reply();
  }
};

template <typename Reply> struct PathQuestion {
  const char *command;
  const char *participle; // as in "3 of 4 removed"
  std::function<Request<Reply>(Client &, const std::string &path, const RequestOptions &)> ask;
  // Returns the exit status.
  std::function<int(Session &, const AskedPath<Reply> &asked, JSONObject request)> tell;
  Here here = nullptr;
};

// The report on a protected path; null for any other.
Telling refusalOfProtected(const std::string &path);

void showProgress(Session &session, std::size_t done, std::optional<std::size_t> all);

// Reports that no request was made, and returns the exit status.
int tellSkipped(Session &session, const JSONObject &request, const std::string &path, Skipped why);

// "Stopped: 12 of 60 removed, 1 in part"
void tellStop(Session &session, const char *participle, std::size_t done, std::size_t all);

// Makes a request for each path and reports the answers in the order of the
// paths. It waits for the first answer alone: without an answer it makes no
// request for the others. It reports on each path in every case.
template <typename Reply> class PathAsker {
public:
  PathAsker(Session &session, PathSource &paths, const PathQuestion<Reply> &question)
      : session_(session), paths_(paths), question_(question) {}

  // Returns the worst status. Call it once.
  int run() {
    Alarm::Heeding heeding(*session_.alarm());
    while (true) {
      if (session_.isStopped() && !isStopping_)
        stop();
      while (canTakeMore() && paths_.isReady())
        takeNext();
      if (asked_.empty() && isAtEnd_)
        break;
      if (!asked_.empty() && asked_.front().isEnded())
        tellFirst();
      else
        wait();
    }
    session_.endProgress();
    if (isStopping_)
      tellStop(session_, question_.participle, done_, told_);
    return status_;
  }

  std::size_t told() const { return told_; }
  std::size_t done() const { return done_; }

private:
  bool canTakeMore() const { return !isAtEnd_ && asked_.size() < window_; }

  void takeNext() {
    AskedPath<Reply> asked;
    try {
      std::optional<std::string> path = paths_.next();
      isAtEnd_ = !path.has_value();
      if (isAtEnd_)
        return;
      asked.path = std::move(*path);
      asked.skipped = skipping_;
      if (skipping_ == Skipped::No && question_.here)
        asked.tellHere = question_.here(asked.path);
      if (skipping_ == Skipped::No && !asked.tellHere) {
        asked.before = presenceOf(asked.path);
        asked.request = question_.ask(session_.agent(), asked.path, session_.requestOptions());
      }
    } catch (const ClientError &error) {
      asked.failure = error;
    }
    asked_.push_back(std::move(asked));
  }

  // Requests that have begun end by themselves or by being cancelled.
  void stop() {
    if (std::any_of(asked_.begin(), asked_.end(),
                    [](const auto &asked) { return !asked.isEnded(); }))
      session_.tellStopping();
    isStopping_ = true;
    skipping_ = Skipped::AfterStop;
    window_ = SIZE_MAX;
    // The last comes first: otherwise the agent would begin the next request each
    // time that one ends.
    for (auto asked = asked_.rbegin(); asked != asked_.rend(); ++asked)
      if (asked->request.isValid())
        asked->request.cancel();
    paths_.stopReading();
  }

  // The agent works on one request at a time, so of the cancelled ones only the
  // first can have begun. Marks the others as skipped.
  void tellApartFromBegun(AskedPath<Reply> &asked) {
    const ClientError *error = asked.request.isValid() ? asked.request.wait().error() : nullptr;
    if (!isStopping_ || !error || error->kind() != ClientError::Kind::Cancelled)
      return;
    if (hasStoppedMidway_ || error->effect() == ClientError::Effect::None)
      asked.skipped = Skipped::AfterStop;
    hasStoppedMidway_ = true;
  }

  void wait() {
    if (!asked_.empty() && asked_.front().request.isValid())
      session_.ringAtEndOf(asked_.front().request);
    session_.waitUntil([this] {
      return (!asked_.empty() && asked_.front().isEnded()) || (canTakeMore() && paths_.isReady()) ||
             (session_.isStopped() && !isStopping_);
    });
  }

  int tell(const AskedPath<Reply> &asked, const JSONObject &request) {
    if (asked.skipped != Skipped::No)
      return tellSkipped(session_, request, asked.path, asked.skipped);
    return asked.tellHere ? asked.tellHere(session_, request)
                          : question_.tell(session_, asked, request);
  }

  void tellFirst() {
    AskedPath<Reply> first = std::move(asked_.front());
    asked_.pop_front();
    tellApartFromBegun(first);
    JSONObject request = pathRequest(question_.command, first.path);
    int status = reportingFailures(
        session_, request, [&] { return tell(first, request); }, first.path);
    status_ = worse(status_, status);
    ++told_;
    done_ += status == ExitDone ? 1 : 0;
    window_ = std::max(window_, mostPathsAsked);
    if (status == ExitNoAnswer && skipping_ == Skipped::No)
      skipping_ = Skipped::AfterNoAnswer;
    showProgress(session_, told_, paths_.count());
  }

  Session &session_;
  PathSource &paths_;
  const PathQuestion<Reply> &question_;
  std::deque<AskedPath<Reply>> asked_;
  std::size_t window_ = 1;
  std::size_t told_ = 0;
  std::size_t done_ = 0;
  int status_ = ExitDone;
  Skipped skipping_ = Skipped::No;
  bool isAtEnd_ = false;
  bool isStopping_ = false;
  bool hasStoppedMidway_ = false;
};

} // namespace kw
