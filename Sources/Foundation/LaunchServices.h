// What the platform's application registry and its aliases know about an item.
// Hosts without them answer as the comments say.
//
// Thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace NS {

inline constexpr std::uint32_t LSRequestTypeCreator = 2;
inline constexpr std::uint32_t LSRequestBasicFlagsOnly = 4;
inline constexpr std::uint32_t LSItemInfoIsPackage = 2;
// What a host without a registry answers.
inline constexpr std::int32_t LSUnknownError = -10810;

struct LSItemInfo {
  std::uint32_t flags = 0;
  std::string fileType; // four characters, or empty
};

class LaunchServices {
public:
  virtual ~LaunchServices() = default;
  static LaunchServices &shared();
  static LaunchServices *exchangeShared(LaunchServices *replacement);

  // LSCopyItemInfoForURL of the file URL: 0 and the information, or a status.
  virtual std::int32_t copyItemInfo(const std::string &path, std::uint32_t requestedInfo,
                                    LSItemInfo &info) = 0;
};

class Aliases {
public:
  virtual ~Aliases() = default;
  static Aliases &shared();
  static Aliases *exchangeShared(Aliases *replacement);

  // The path of the cloud item that the path stands for, nothing where it
  // stands for itself or no such lookup exists.
  virtual std::optional<std::string> iCloudAliasPathForPath(const std::string &path) = 0;
  // Where a Finder alias leads, through whole chains; nothing when the item is
  // none or leads nowhere.
  virtual std::optional<std::string> resolveAliasFile(const std::string &path) = 0;
};

} // namespace NS
