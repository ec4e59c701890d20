// Finds or makes standard folders and scratch folders.
//
// All block; several threads may call them at once. The receiver is the first
// argument.
#pragma once

#include "Foundation/Desktop/StandardFolders.h"
#include "Foundation/Trees/FileManager.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

inline constexpr std::string_view kDirectoryLocationDomain = "DirectoryLocationDomain";

enum DirectoryLocationErrorCode : std::int64_t {
  DirectoryLocationErrorNoPathFound = 0,
  DirectoryLocationErrorFileExistsAtLocation = 1,
};

// Returns the first folder of that kind in the domains, with the component
// appended. Makes it with its parents when it is missing. Success clears the
// slot. On failure the slot gets an error of kDirectoryLocationDomain, or the
// file manager's when the folder cannot be made.
std::optional<std::string>
findOrCreateDirectory(NS::FileManager &manager, NS::SearchPathDirectory directory,
                      NS::SearchPathDomainMask inDomain,
                      const std::optional<std::string> &appendPathComponent, NS::ErrorSlot error);

// Returns the application's folder in the support folder of the process's own
// user, and makes it when missing. On failure returns an empty optional and
// logs a line.
std::optional<std::string>
userApplicationSupportDirectoryWithAppName(NS::FileManager &manager,
                                           const std::optional<std::string> &appName);
// The same for the main bundle's executable.
std::optional<std::string> userApplicationSupportDirectory(NS::FileManager &manager);

// Makes a fresh, empty folder of that name in the temporary folder, and first
// removes any item there. When it cannot remove or make it, returns an empty
// optional and logs a line. Refuses names that would lead to the temporary
// folder itself or out of it.
std::optional<std::string> temporaryDirectoryWithName(NS::FileManager &manager,
                                                      const std::string &name);

} // namespace kw
