// Questions about paths for the cleaning logic. None of them changes the file
// system.
//
// All block until answered; several threads may call them at once. They throw
// nothing, log nothing and report no error: for an unreadable item they return
// false, an empty collection or the path unchanged. The receiver is the first
// argument.
#pragma once

#include "Foundation/Text/RegularExpression.h"
#include "Foundation/Trees/FileManager.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kw {

// Tells whether the item is a folder. False for a link to a folder and for a
// missing item.
bool isFileDirectoryAtPath(NS::FileManager &manager, const std::string &path);

// Tells whether the system's restriction flag is set. Follows a final link.
bool isFileRestricted(NS::FileManager &manager, const std::string &path);

// Tells whether an extended attribute's name is "com.apple.rootless" or a
// leading part of it ("com.apple"), on a system that knows such protection.
// Does not follow a final link. May miss a short name at the end of the list.
bool isFileProtectedByRootless(NS::FileManager &manager, const std::string &path);

// Tells whether the item or a folder above it, without the root, exists but
// cannot be read.
bool isFileRestrictedForReadingRecursivelyUp(NS::FileManager &manager, const std::string &path);

// The full paths of a folder's children, in listing order. "Pathes" is (sic).
std::vector<std::string> directoryContentsWithFullPathesAtPath(NS::FileManager &manager,
                                                               const std::string &path);

// The children, hidden ones included, of every visible item that many levels
// below the URL (1 for its own children).
std::vector<NS::URL> contentsOfDirectoryAtURL(NS::FileManager &manager, const NS::URL &url,
                                              std::uint64_t atLevel);

// The names in a folder and, on demand, "name/child" for the items one level
// below.
std::set<std::string> getContentOfPath(NS::FileManager &manager, const std::string &path,
                                       bool secondLevel);

// Tells whether the expression matches anywhere in the full path of an item
// below the folder. The folder's own children are level 0. The search includes
// one level below the given level.
bool fileExistsAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                      const NS::RegularExpression *withRegularExpression, std::uint64_t level);

// Returns the path itself when no item exists there, else the first free one of
// "name 1.ext", "name 2.ext" and so on.
std::string uniquePathForPath(NS::FileManager &manager, const std::string &path);

// Tells whether a folder holds any item. An empty subfolder counts; links count
// on demand.
bool containsAnyFileAtPath(NS::FileManager &manager, const std::string &path, bool ignoreSymLinks);

} // namespace kw
