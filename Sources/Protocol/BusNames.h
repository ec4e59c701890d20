// The names of the agent's interfaces on the bus, and the limit of a request:
// both ends use them. Resources has the description of the interfaces.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace kw {

inline constexpr const char *kOperationInterface = "org.keepwell.KWPrivilegedOperation";

// To a client, about its own request.
inline constexpr const char *kOutputInterface = "org.keepwell.KWPrivilegedOperationProgress";
inline constexpr const char *kOutputMember = "ReceiveNewOutput";

// A client's requests about its requests, and the agent's signals about them.
inline constexpr const char *kControlInterface = "org.keepwell.KWRequestControl";
inline constexpr const char *kCancelMember = "Cancel";
inline constexpr const char *kEndMember = "EndRequestsOnLeaving";
inline constexpr const char *kSubscribeMember = "SubscribeToProgress";
inline constexpr const char *kProgressMember = "Progress";
inline constexpr const char *kReadingTrialMember = "ReadingTrial";

// The agent refuses a request with more bytes of arguments. The client does not
// send it.
inline constexpr std::size_t kMostArgumentBytes = std::size_t{16} << 20;

// The path of the one object of the service with that name.
inline std::string objectPathForName(std::string name) {
  std::replace(name.begin(), name.end(), '.', '/');
  return "/" + name;
}

} // namespace kw
