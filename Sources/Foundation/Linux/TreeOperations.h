// What FileManager does with more than one item at a time: whole trees
// removed, moved, copied and walked, and the Trash. For bodies of the seam only.
//
// All functions block, may run on several threads at once and keep no state.
#pragma once

#include "Foundation/FileManager.h"
#include "Foundation/POSIX/TreeOutcome.h"

#include <memory>
#include <optional>
#include <string>

namespace NS {

// As FileManager's operations of the same kind promise.
TreeResult removeTree(const std::string &path);
TreeResult moveTree(const std::string &srcPath, const std::string &dstPath);
TreeResult copyTree(const std::string &srcPath, const std::string &dstPath);

std::unique_ptr<PathEnumerator> openPathEnumerator(const std::string &path);
std::unique_ptr<URLEnumerator> openURLEnumerator(const URL &url,
                                                 DirectoryEnumerationOptions options);

// The error when the item cannot be put in any Trash.
std::optional<Error> moveToTrash(const std::string &path);

} // namespace NS
