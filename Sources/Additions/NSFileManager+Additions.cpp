// Read-only questions about paths.
#include "Additions/NSFileManager+Additions.h"

#include "Additions/NSStringAdditions.h"
#include "Additions/RootlessProtection.h"
#include "Foundation/Base/Format.h"
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Text/Unicode.h"

namespace kw {

bool isFileDirectoryAtPath(NS::FileManager &, const std::string &path) {
  auto attributes = NS::FileManager::defaultManager().attributesOfItemAtPath(path, nullptr);
  return attributes && attributes->type == NS::FileType::Directory;
}

bool isFileRestricted(NS::FileManager &, const std::string &path) {
  NS::FileStatus status;
  return NS::FileFlags::shared().status(path, status) == 0 &&
         (status.flags & NS::SF_RESTRICTED_FLAG) != 0;
}

bool isFileProtectedByRootless(NS::FileManager &, const std::string &path) {
  // Never destroyed: threads may ask until the very end of the process.
  static RootlessProtection *const protection = new RootlessProtection;
  return protection->protects(path);
}

bool isFileRestrictedForReadingRecursivelyUp(NS::FileManager &manager, const std::string &path) {
  std::string current = path;
  while (NS::utf16Length(current) > 1) {
    if (!manager.isReadableFileAtPath(current) && manager.fileExistsAtPath(current))
      return true;
    current = NS::stringByDeletingLastPathComponent(current);
  }
  return false;
}

std::vector<std::string> directoryContentsWithFullPathesAtPath(NS::FileManager &manager,
                                                               const std::string &path) {
  std::vector<std::string> paths;
  if (auto names = manager.contentsOfDirectoryAtPath(path, nullptr))
    for (const std::string &name : *names)
      paths.push_back(NS::stringByAppendingPathComponent(path, name));
  return paths;
}

std::vector<NS::URL> contentsOfDirectoryAtURL(NS::FileManager &manager, const NS::URL &url,
                                              std::uint64_t atLevel) {
  std::vector<NS::URL> children;
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtURL(
      url, NS::DirectoryEnumerationSkipsHiddenFiles);
  while (auto item = enumerator->nextObject()) {
    if (enumerator->level() != atLevel)
      continue;
    if (auto listing =
            manager.contentsOfDirectoryAtURL(*item, NS::DirectoryEnumerationNone, nullptr))
      children.insert(children.end(), listing->begin(), listing->end());
    enumerator->skipDescendants();
  }
  return children;
}

std::set<std::string> getContentOfPath(NS::FileManager &, const std::string &path,
                                       bool secondLevel) {
  NS::FileManager &shared = NS::FileManager::defaultManager();
  auto namesIn = [&](const std::string &folder) {
    return shared.contentsOfDirectoryAtPath(folder, nullptr).value_or(std::vector<std::string>());
  };
  std::set<std::string> content;
  for (const std::string &name : namesIn(path)) {
    content.insert(name);
    if (secondLevel)
      for (const std::string &child : namesIn(NS::stringByAppendingPathComponent(path, name)))
        content.insert(NS::stringByAppendingPathComponent(name, child));
  }
  return content;
}

bool fileExistsAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                      const NS::RegularExpression *withRegularExpression, std::uint64_t level) {
  if (!path || !withRegularExpression)
    return false;
  auto enumerator = manager.enumeratorAtPath(*path);
  while (auto item = enumerator->nextObject()) {
    if (isMatchedByRegex(NS::stringByAppendingPathComponent(*path, *item), withRegularExpression))
      return true;
    // The level given counts the folder's own children as 0.
    if (enumerator->level() - 1 > level)
      enumerator->skipDescendants();
  }
  return false;
}

std::string uniquePathForPath(NS::FileManager &, const std::string &path) {
  NS::FileManager &shared = NS::FileManager::defaultManager();
  if (!shared.fileExistsAtPath(path))
    return path;
  std::string folder = NS::stringByDeletingLastPathComponent(path);
  std::string base = NS::stringByDeletingPathExtension(NS::lastPathComponent(path));
  std::string extension = NS::pathExtension(path);
  for (std::uint32_t n = 1;; ++n) {
    std::string candidate =
        NS::stringByAppendingPathComponent(folder, NS::stringWithFormat("%@ %i", base, n));
    if (!extension.empty())
      candidate = NS::stringByAppendingPathExtension(candidate, extension);
    if (!shared.fileExistsAtPath(candidate))
      return candidate;
  }
}

bool containsAnyFileAtPath(NS::FileManager &manager, const std::string &path, bool ignoreSymLinks) {
  auto enumerator = manager.enumeratorAtPath(path);
  while (auto item = enumerator->nextObject()) {
    if (!ignoreSymLinks)
      return true;
    // A folder counts by itself, so its contents make no difference.
    auto attributes =
        manager.attributesOfItemAtPath(NS::stringByAppendingPathComponent(path, *item), nullptr);
    if (!attributes || attributes->type != NS::FileType::SymbolicLink)
      return true;
  }
  return false;
}

} // namespace kw
