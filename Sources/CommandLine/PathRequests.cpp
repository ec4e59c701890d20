// Takes paths from the arguments or from standard input, and reports on each.
#include "CommandLine/PathRequests.h"

#include "CommandLine/ProtectedPaths.h"

#include <fmt/format.h>
#include <utility>

namespace kw {

std::shared_ptr<PathArguments> declarePaths(Arguments &arguments) {
  auto paths = std::make_shared<PathArguments>();
  arguments.operand("paths", paths->given, "PATH", "Files or folders");
  arguments.flag(
      "-0,--null", paths->fromStandardInput,
      "Read the paths from standard input, each ended by a NUL, as find -print0 writes them");
  return paths;
}

void requirePaths(const PathArguments &arguments) {
  if (arguments.given.empty() && !arguments.fromStandardInput)
    throw UsageError("PATH is required, or -0 to read paths from standard input");
  if (!arguments.given.empty() && arguments.fromStandardInput)
    throw UsageError("give paths as arguments or, with -0, on standard input, not both");
}

PathSource::PathSource(Session &session, const PathArguments &arguments, Expand expand)
    : expand_(std::move(expand)) {
  if (arguments.fromStandardInput) {
    if (session.input())
      reader_ = std::make_unique<PathReader>(*session.input(), session.alarm());
    return;
  }
  if (!expand_)
    count_ = arguments.given.size();
  for (const std::string &path : arguments.given)
    items_.push_back({absolutePath(path), nullptr});
}

bool PathSource::isReady() const {
  return !expanded_.empty() || !items_.empty() || !reader_ || reader_->isReady();
}

std::optional<PathReader::Item> PathSource::nextItem() {
  if (items_.empty())
    return reader_ ? reader_->next() : std::nullopt;
  PathReader::Item item = std::move(items_.front());
  items_.pop_front();
  return item;
}

std::optional<std::string> PathSource::nextGiven() {
  std::optional<PathReader::Item> item = nextItem();
  if (!item)
    return std::nullopt;
  if (item->complaint)
    throw ClientError(ClientError::Kind::BadArgument, "", item->complaint);
  return absolutePath(item->path);
}

std::optional<std::string> PathSource::next() {
  while (expand_ && expanded_.empty()) {
    std::optional<std::string> given = nextGiven();
    if (!given)
      return std::nullopt;
    for (std::string &path : expand_(*given))
      expanded_.push_back(std::move(path));
  }
  if (!expand_)
    return nextGiven();
  std::string path = std::move(expanded_.front());
  expanded_.pop_front();
  return path;
}

std::optional<std::size_t> PathSource::count() const {
  return count_;
}

std::vector<std::string> PathSource::readAhead() {
  while (reader_) {
    std::optional<PathReader::Item> item = reader_->next();
    if (!item)
      reader_.reset();
    else
      items_.push_back(std::move(*item));
  }
  std::vector<std::string> paths;
  for (const PathReader::Item &item : items_)
    if (!item.complaint)
      paths.push_back(absolutePath(item.path));
  return paths;
}

void PathSource::stopReading() {
  while (reader_ && reader_->isReady()) {
    std::optional<PathReader::Item> item = reader_->next();
    if (!item)
      reader_.reset();
    else
      items_.push_back(std::move(*item));
  }
  if (reader_)
    reader_->leave();
  reader_.reset();
  expand_ = nullptr; // nothing is looked at any more
}

int tellForEachPath(Session &session, const char *command, PathSource &paths,
                    const std::function<int(const std::string &path)> &tell) {
  int status = ExitDone;
  bool isStopping = false;
  for (bool isAtEnd = false; !isAtEnd;) {
    if (!paths.isReady())
      session.flush();
    JSONObject request = pathRequest(command, "");
    status = worse(status, reportingFailures(session, request, [&] {
                     std::optional<std::string> path = paths.next();
                     isAtEnd = !path.has_value();
                     if (path && isStopping)
                       return tellSkipped(session, pathRequest(command, *path), *path,
                                          Skipped::AfterStop);
                     return path ? tell(*path) : ExitDone;
                   }));
    if (session.isStopped() && !std::exchange(isStopping, true)) {
      paths.stopReading();
      status = worse(status, ExitStopped);
    }
  }
  return status;
}

void showProgress(Session &session, std::size_t done, std::optional<std::size_t> all) {
  constexpr std::size_t few = 20; // are done before a report of progress is due
  if (done < few)
    return;
  std::string line = std::to_string(done);
  line.append(all ? " of " + std::to_string(*all) : " done");
  session.setProgressOfPaths(line);
  session.showProgress(line);
}

int tellSkipped(Session &session, const JSONObject &request, const std::string &path, Skipped why) {
  bool isStopped = why == Skipped::AfterStop;
  const char *reason =
      isStopped ? "stopped before it began" : "not tried, since there was no answer before";
  session.sayFailure(JSONObject(request)
                         .add("success", false)
                         .add("error", jsonOfReason(reason, isStopped ? "cancelled" : "skipped")));
  session.complain(fmt::format("{}: {}", path, reason));
  return isStopped ? ExitStopped : ExitNoAnswer;
}

Telling refusalOfProtected(const std::string &path) {
  auto protection = protectionOf(path);
  if (!protection)
    return nullptr;
  return [reason = *protection](Session &session, JSONObject request) {
    session.sayFailure(
        request.add("success", false).add("error", jsonOfReason(reason, "protected")));
    session.complain(reason);
    return ExitRefused;
  };
}

void tellStop(Session &session, const char *participle, std::size_t done, std::size_t all) {
  std::string part =
      session.stoppedInPart() > 0 ? fmt::format(", {} in part", session.stoppedInPart()) : "";
  session.note(fmt::format("Stopped: {} of {} {}{}", done, all, participle, part));
}

JSONObject pathRequest(const char *command, const std::string &path) {
  JSONObject request;
  request.add("command", command).addName("path", path);
  return request;
}

} // namespace kw
