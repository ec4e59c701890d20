// Paths as arguments and from standard input.
#include "CommandLine/PathRequests.h"

#include <istream>

namespace kw {

std::shared_ptr<PathArguments> declarePaths(Arguments &arguments) {
  auto paths = std::make_shared<PathArguments>();
  arguments.operands("paths", paths->given, "PATH", "Files or folders");
  arguments.flag(
      "-0,--null", paths->fromStandardInput,
      "Read the paths from standard input, each ended by a NUL, as find -print0 writes them");
  return paths;
}

void requirePaths(const PathArguments &arguments) {
  if (arguments.given.empty() && !arguments.fromStandardInput)
    throw UsageError("PATH is required, or -0 to read paths from standard input");
  if (!arguments.given.empty() && arguments.fromStandardInput)
    throw UsageError("paths come as arguments or, with -0, from standard input, not both");
}

namespace {

[[noreturn]] void refuse(const char *reason) {
  throw ClientError(ClientError::Kind::BadArgument, "", reason);
}

} // namespace

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
  if (expand_ || arguments_.fromStandardInput)
    return std::nullopt;
  return arguments_.given.size();
}

std::optional<std::string> PathSource::nextGiven() {
  if (!arguments_.fromStandardInput)
    return index_ < arguments_.given.size()
               ? std::optional(absolutePath(arguments_.given[index_++]))
               : std::nullopt;
  std::string path;
  if (!input_ || !std::getline(*input_, path, '\0'))
    return std::nullopt;
  // Whoever wrote it may have been stopped in mid-path, and what is left of it
  // may name another item.
  if (input_->eof())
    refuse("the last path on standard input is not ended by a NUL and is left alone");
  if (path.empty())
    refuse("a path must not be empty");
  return absolutePath(path);
}

int tellForEachPath(Session &session, const char *command, PathSource paths,
                    const std::function<int(const std::string &path)> &tell) {
  int status = ExitDone;
  for (bool isAtEnd = false; !isAtEnd;) {
    JSONObject request = pathRequest(command, "");
    status = worse(status, reportingFailures(session, request, [&] {
                     std::optional<std::string> path = paths.next();
                     isAtEnd = !path.has_value();
                     return path ? tell(*path) : ExitDone;
                   }));
  }
  return status;
}

void showProgress(Session &session, std::size_t done, std::optional<std::size_t> all) {
  constexpr std::size_t few = 20; // are done before anybody asks how far it is
  if (done < few)
    return;
  std::string line = std::to_string(done);
  session.showProgress(all ? line + " of " + std::to_string(*all) : line + " done");
}

JSONObject pathRequest(const char *command, const std::string &path) {
  JSONObject request;
  request.add("command", command).add("path", path);
  return request;
}

} // namespace kw
