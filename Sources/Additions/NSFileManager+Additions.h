// Questions about paths that the cleaning logic asks before it acts. None of
// them changes the file system.
//
// All block until answered; all may run on several threads at once. Nothing is
// thrown, logged or reported as an error: what cannot be read answers false,
// an empty collection or the path as it came. The receiver is the first
// argument.
#pragma once

#include "Foundation/FileManager.h"
#include "Foundation/RegularExpression.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kw {

// A link to a folder is none, nor is what is missing.
bool isFileDirectoryAtPath(NS::FileManager &manager, const std::string &path);

// Whether the system's restriction flag is set, through a final link.
bool isFileRestricted(NS::FileManager &manager, const std::string &path);

// Whether an extended attribute's name is "com.apple.rootless" or a leading
// part of it ("com.apple"), on a system that knows such protection; a final
// link is not followed. A short name at the end of the list may be missed.
bool isFileProtectedByRootless(NS::FileManager &manager, const std::string &path);

// Whether the item or a folder above it, the root left out, exists but cannot
// be read.
bool isFileRestrictedForReadingRecursivelyUp(NS::FileManager &manager, const std::string &path);

// The full paths of a folder's children, in listing order.
std::vector<std::string> directoryContentsWithFullPathesAtPath(NS::FileManager &manager,
                                                               const std::string &path);

// The children, hidden ones included, of every item that is not hidden and
// stands that many levels below the URL (1 for its own children).
std::vector<NS::URL> contentsOfDirectoryAtURL(NS::FileManager &manager, const NS::URL &url,
                                              std::uint64_t atLevel);

// The names in a folder and, on demand, "name/child" for what stands one level
// below.
std::set<std::string> getContentOfPath(NS::FileManager &manager, const std::string &path,
                                       bool secondLevel);

// Whether the expression matches anywhere in the full path of an item below
// the folder. Its own children are level 0; what stands one level below the
// level given is still looked at.
bool fileExistsAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                      const NS::RegularExpression *withRegularExpression, std::uint64_t level);

// The path itself when nothing stands there, else the first of "name 1.ext",
// "name 2.ext" and so on that is free.
std::string uniquePathForPath(NS::FileManager &manager, const std::string &path);

// Whether a folder holds anything; a subfolder counts even when it is empty,
// and links can be left out of account.
bool containsAnyFileAtPath(NS::FileManager &manager, const std::string &path, bool ignoreSymLinks);

} // namespace kw
