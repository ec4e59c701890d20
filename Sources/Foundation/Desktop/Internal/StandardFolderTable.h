// The places of the standard folders on each host: one table, a column for a
// host, so that either host can test both.
//
// Pure; any thread.
#pragma once

#include "Foundation/Desktop/StandardFolders.h"

#include <string_view>

namespace NS {

// The folder that a place of the table is relative to.
enum class FolderBase {
  None,          // the host has no such folder
  Root,          // the root of the file system
  Home,          // the user's home
  UserData,      // the user's data folder
  UserCaches,    // the user's caches
  UserDirectory, // the user's own folder of that name, which the desktop knows
};

struct FolderPlace {
  FolderBase base = FolderBase::None;
  std::string_view path = ""; // empty for the base itself

  friend bool operator==(const FolderPlace &, const FolderPlace &) = default;
};

enum class FolderHost { Linux, macOS };

// The places of that kind in the given domains, the user's first.
std::vector<FolderPlace> standardFolderPlaces(FolderHost host, SearchPathDirectory directory,
                                              SearchPathDomainMask domainMask);

// The base with the path below it.
std::string standardFolderPath(std::string_view base, std::string_view path);
// The path with the user's home written "~". A home that is the root stays.
std::string stringByAbbreviatingHome(const std::string &path, const std::string &home);

} // namespace NS
