// The paths of the system's own tools and files, the same on every host.
#pragma once

namespace kw::tools {

inline constexpr const char *launchctl = "/bin/launchctl";
inline constexpr const char *kextunload = "/sbin/kextunload";
inline constexpr const char *pkgutil = "/usr/sbin/pkgutil";
inline constexpr const char *ditto = "/usr/bin/ditto";
inline constexpr const char *repairPackages = "/usr/libexec/repair_packages";
inline constexpr const char *systemStarter = "/sbin/SystemStarter";
inline constexpr const char *discoveryutil = "/usr/sbin/discoveryutil";
inline constexpr const char *dscacheutil = "/usr/sbin/dscacheutil";
inline constexpr const char *killall = "/usr/bin/killall";
inline constexpr const char *periodic = "/usr/sbin/periodic";
inline constexpr const char *mdutil = "/usr/bin/mdutil";
inline constexpr const char *log = "/usr/bin/log";

inline constexpr const char *launchdConfiguration = "/etc/launchd.conf";
inline constexpr const char *logStore = "/var/log/asl";

} // namespace kw::tools
