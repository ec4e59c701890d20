// Asks the agent, and the person, on behalf of a walk.
#include "CommandLine/Measure.h"

#include "CommandLine/Session.h"

namespace kw {

Measure measuringByAgent(Session &session, std::optional<std::chrono::milliseconds> limit) {
  return [&session, limit](const std::string &path) -> std::optional<std::uint64_t> {
    try {
      RequestOptions options = session.requestOptions();
      if (limit)
        options.timeLimit = limit;
      auto request = session.agent().sizeOfItemAtPathAsync(path, options);
      SizeReply reply = session.await(request);
      return reply.error ? std::nullopt : std::optional(reply.allocatedBytes);
    } catch (const ClientError &) {
      return std::nullopt; // the caller reports the item as not counted
    }
  };
}

Watch showingAdvance(Session &session) {
  return [&session](const RequestProgress &progress) {
    session.showAdvance(progress);
    return !session.isStopped();
  };
}

// Folders count at their first visit.
bool WatchedWalk::count(const NS::FTSEntry &entry) {
  constexpr std::uint64_t pause = 512;
  if (!watch_ || entry.info == NS::FTSInfo::DP)
    return true;
  progress_.bytes += entry.statp.allocatedBytes();
  if (++progress_.items % pause != 0)
    return true;
  progress_.path = entry.path;
  return watch_(progress_);
}

} // namespace kw
