// The names of the agent, its clients and its files: every reverse-DNS string
// and every installed path in one place.
#pragma once

#include <string_view>

namespace kw {

// The launchd label, the bundle identifier and the well-known bus name, one
// string for all three.
inline constexpr std::string_view kAgentServiceName = "org.keepwell.pro.agent";

// The path of the agent once a client has installed it.
inline constexpr std::string_view kAgentToolPath =
    "/Library/PrivilegedHelperTools/org.keepwell.pro.agent";
inline constexpr std::string_view kAgentJobPlistPath =
    "/Library/LaunchDaemons/org.keepwell.pro.agent.plist";

// The socket named in the job list. The agent never opens it.
inline constexpr std::string_view kAgentSocketPath = "/var/run/org.keepwell.pro.agent.socket";

// The socket that the self-removal deletes. An early edition used this name,
// and it stays a constant of its own: it must not be derived from the label.
inline constexpr std::string_view kAgentRemovedSocketPath = "/var/run/org.keepwell.agent.socket";

// Error domains. Code 0 is the only code of the first. The second's code is the
// return value of the secure removal call.
inline constexpr std::string_view kTaskRunnerErrorDomain = "org.keepwell.taskRunner";
inline constexpr std::string_view kSecureRemoveErrorDomain = "org.keepwell.SecureRemoveErrorDomain";

inline constexpr std::string_view kAgentBundleName = "Keepwell Agent";
inline constexpr std::string_view kAgentBundleVersion = "2.11";

// The only two applications that may install the agent.
inline constexpr std::string_view kMenuBarBundleIdentifier = "org.keepwell.menubar";
inline constexpr std::string_view kApplicationBundleIdentifier = "org.keepwell.app";

} // namespace kw
