// Answers of the platform's application registry and its aliases about an item.
// On Linux, which has neither, the registry answers LSUnknownError and each alias
// function an empty value.
//
// Thread-safe. A call may block on the disk or on the platform's services.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <optional>
#include <string>

namespace NS {

inline constexpr std::uint32_t LSRequestTypeCreator = 2;
inline constexpr std::uint32_t LSRequestBasicFlagsOnly = 4;
inline constexpr std::uint32_t LSItemInfoIsPackage = 2;
// The registry has no answer.
inline constexpr std::int32_t LSUnknownError = -10810;

struct LSItemInfo {
  std::uint32_t flags = 0;
  std::string fileType; // four characters, or empty
};

class LaunchServices : public SharedInstance<LaunchServices> {
public:
  virtual ~LaunchServices() = default;
  static LaunchServices &real();

  // As LSCopyItemInfoForURL of the file URL: returns 0 and fills in the
  // information; or returns another status and leaves the information alone.
  virtual std::int32_t copyItemInfo(const std::string &path, std::uint32_t requestedInfo,
                                    LSItemInfo &info) = 0;
};

class Aliases : public SharedInstance<Aliases> {
public:
  virtual ~Aliases() = default;
  static Aliases &real();

  // The path of the cloud item behind the path; empty when the path is its own
  // or no such lookup exists.
  virtual std::optional<std::string> iCloudAliasPathForPath(const std::string &path) = 0;
  // The target of a Finder alias, through whole chains; empty when the item is
  // not an alias or its target is missing.
  virtual std::optional<std::string> resolveAliasFile(const std::string &path) = 0;
};

} // namespace NS
