// Walks over a tree: the search for what an application left behind, a walk
// that hands every item to a function, and a filtered list.
//
// All block and call back on the caller's thread. None follows a link, leaves
// the tree or changes anything; folders that cannot be read are passed over
// where nothing else is said. The receiver is the first argument.
#pragma once

#include "Foundation/FileManager.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kw {

// Whether a name is to be passed over with all beneath it; empty for none.
using NameExclusion = std::function<bool(const std::string &name)>;

// A search by name.
struct NameQuery {
  std::string name;
  bool byWords = false;
  bool recursive = true;
  NameExclusion isExcluded = nullptr;
  // Numbered copies, and items that bear the folder's own name, are results too.
  bool withCopies = false;
};

// Hands each result to the function as the walk meets it, in the order and with
// the repetitions of findFile.
void searchByName(NS::FileManager &manager, const NameQuery &query, const std::string &atPath,
                  const std::function<void(const std::string &path)> &found);

// The full paths below a folder whose names contain the name or, matched by
// words, hold each of its words; without their extensions, unless they are
// folders, for the words. Case does not count. Numbered copies and items that
// bear the folder's own name are left out. Not recursive, only the folder's
// children are looked at. A folder found stands twice in the list, before and
// after what it holds. Nothing for an empty name, and at "", "/" and ".".
std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive, const NameExclusion &filterWith);
std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive);

// Setting stop ends the walk with this item. Only a folder that can be entered
// is a directory here; one that then proves unreadable comes once more, as
// none.
using WalkHandler = std::function<void(const std::string &path, bool isDirectory, bool &stop)>;

// Hands every item below the path to the handler, each folder before what it
// holds, never the root and nothing of another volume. False without a handler
// or a path, and when a folder fails while it is read; true otherwise.
bool kw_FTSWalkAtPath(NS::FileManager &manager, const std::string &path, bool recursive,
                      const WalkHandler &handler);

// Given a path relative to the root of the search.
using PathFilter = std::function<bool(const std::string &relativePath)>;

// The full paths of what exists below a path and passes the filter (an empty
// one passes everything), in the order of the walk. A folder that does not
// pass is still descended into; dangling links are dropped.
std::vector<std::string> filesByEnumeratingAtPath(NS::FileManager &manager, const std::string &path,
                                                  const PathFilter &withFilterBlock);

} // namespace kw
