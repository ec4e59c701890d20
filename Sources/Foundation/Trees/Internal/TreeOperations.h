// FileManager's operations on whole trees: removing, moving, copying and
// walking them, and the Trash. Internal to Foundation.
//
// All functions block and keep no state; several threads may call them at once.
#pragma once

#include "Foundation/Trees/FileManager.h"
#include "Foundation/Walking/Internal/TreeOutcome.h"

#include <memory>
#include <optional>
#include <string>

namespace NS {

// As FileManager's operations of the same kind. The caller holds a WalkShare.
TreeResult removeTree(const std::string &path);
TreeResult moveTree(const std::string &srcPath, const std::string &dstPath);
TreeResult copyTree(const std::string &srcPath, const std::string &dstPath);

std::unique_ptr<PathEnumerator> openPathEnumerator(const std::string &path);
std::unique_ptr<URLEnumerator> openURLEnumerator(const URL &url,
                                                 DirectoryEnumerationOptions options);

// The platform's error for a walk that failed. The access is that to the
// original. "No such file" concerns only the requested item.
Error errorOf(const TreeFailure &failure, FileAccess access);

// Moves the item to the Trash. On failure returns the error.
std::optional<Error> moveToTrash(const std::string &path);

} // namespace NS
