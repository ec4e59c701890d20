// Commands that ask the agent the same for each of many paths: where the paths
// come from, and how their requests overlap.
#pragma once

#include "CommandLine/Command.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

// What the arguments say about paths.
struct PathArguments {
  std::vector<std::string> given;
  bool fromStandardInput = false;
};

// Declares PATH... and -0.
std::shared_ptr<PathArguments> declarePaths(Arguments &arguments);

// Throws UsageError when there is no path to come.
void requirePaths(const PathArguments &arguments);

// The paths one after the other, absolute.
class PathSource {
public:
  // What shall stand in the place of one path.
  using Expand = std::function<std::vector<std::string>(const std::string &path)>;

  PathSource(const PathArguments &arguments, std::istream *input, Expand expand = nullptr)
      : arguments_(arguments), input_(arguments.fromStandardInput ? input : nullptr),
        expand_(std::move(expand)) {}

  // Nothing when there is no further path. Throws ClientError of kind
  // BadArgument for one that is none; the next call goes on behind it.
  std::optional<std::string> next();
  // Where it is known beforehand.
  std::optional<std::size_t> count() const;

private:
  std::optional<std::string> nextGiven();

  const PathArguments &arguments_;
  std::istream *input_;
  Expand expand_;
  std::deque<std::string> expanded_;
  std::size_t index_ = 0;
};

JSONObject pathRequest(const char *command, const std::string &path);

// For commands that need no agent: has each path told, and gives the worst
// status.
int tellForEachPath(Session &session, const char *command, PathSource paths,
                    const std::function<int(const std::string &path)> &tell);

// Requests that are asked and not yet told. More than the client lets be on
// their way, so that it never waits for this program's output.
inline constexpr std::size_t mostPathsAsked = 256;

// A path and the request that was made for it, or the reason why none was.
template <typename Reply> struct AskedPath {
  std::string path;
  Request<Reply> request;
  std::optional<ClientError> failure;

  const Reply &reply() const {
    if (failure)
      throw ClientError(*failure);
    return request.wait().reply();
  }
};

template <typename Reply> struct PathQuestion {
  const char *command;
  std::function<Request<Reply>(Client &, const std::string &path, const RequestOptions &)> ask;
  // Gives the exit status.
  std::function<int(Session &, const std::string &path, JSONObject request, const Reply &)> tell;
};

template <typename Reply>
std::optional<AskedPath<Reply>> askForNextPath(Session &session, PathSource &paths,
                                               const PathQuestion<Reply> &question) {
  AskedPath<Reply> asked;
  try {
    std::optional<std::string> path = paths.next();
    if (!path)
      return std::nullopt;
    asked.path = std::move(*path);
    asked.request = question.ask(session.agent(), asked.path, session.requestOptions());
  } catch (const ClientError &error) {
    asked.failure = error;
  }
  return asked;
}

// Waking for each of many answers would cost more than the answers: a moment
// is given to a number of them, which then are told at one go. What was told
// before is only held back for as long.
template <typename Reply>
void awaitFirst(Session &session, const std::deque<AskedPath<Reply>> &asked) {
  constexpr std::size_t atOneGo = 32;
  constexpr std::chrono::milliseconds moment{20};
  const Request<Reply> &first = asked.front().request;
  if (!first.isValid() || first.isEnded())
    return;
  const Request<Reply> &later = asked[std::min(atOneGo, asked.size()) - 1].request;
  if (later.isValid() && later.waitFor(moment))
    return;
  session.flush();
  static_cast<void>(first.wait());
}

void showProgress(Session &session, std::size_t done, std::optional<std::size_t> all);

// Asks for each path and tells the answers in the order of the paths. The
// first answer is awaited alone: where nobody answers, nobody is asked for
// the rest. Gives the worst status.
template <typename Reply>
int askForEachPath(Session &session, PathSource paths, const PathQuestion<Reply> &question) {
  std::deque<AskedPath<Reply>> asked;
  int status = ExitDone;
  bool isAtEnd = false;
  std::size_t window = 1;
  std::size_t told = 0;
  while (true) {
    while (!isAtEnd && asked.size() < window) {
      auto next = askForNextPath(session, paths, question);
      isAtEnd = !next.has_value();
      if (next)
        asked.push_back(std::move(*next));
    }
    if (asked.empty())
      break;
    awaitFirst(session, asked);
    const AskedPath<Reply> first = std::move(asked.front());
    asked.pop_front();
    JSONObject request = pathRequest(question.command, first.path);
    status = worse(status, reportingFailures(session, request, [&] {
                     return question.tell(session, first.path, request, first.reply());
                   }));
    window = mostPathsAsked;
    isAtEnd = isAtEnd || status == ExitNoAnswer;
    showProgress(session, ++told, paths.count());
  }
  session.endProgress();
  return status;
}

} // namespace kw
