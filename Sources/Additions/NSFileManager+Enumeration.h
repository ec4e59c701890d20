// Walks over a tree: the search for an application's leftovers, a walk that
// passes every item to a function, and a filtered list.
//
// All block and call back on the caller's thread. None follows a link, leaves
// the tree or changes an item. They pass over unreadable folders unless a
// comment says otherwise. The receiver is the first argument.
#pragma once

#include "Foundation/Trees/FileManager.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kw {

// Tells whether to pass over a name with all items beneath it. An empty
// function excludes none.
using NameExclusion = std::function<bool(const std::string &name)>;

// A search by name.
struct NameQuery {
  std::string name;
  bool byWords = false;
  bool recursive = true;
  NameExclusion isExcluded = nullptr;
  // Also returns numbered copies, and items that bear the folder's own name.
  bool withCopies = false;
};

// Passes each result to the function as the walk meets it, in the order and
// with the repetitions of findFile.
void searchByName(NS::FileManager &manager, const NameQuery &query, const std::string &atPath,
                  const std::function<void(const std::string &path)> &found);

// Returns the full paths of items below a folder whose names contain the name
// or, matched by words, hold each of its words. Word matching leaves out the
// items' extensions, unless they are folders. Case does not count. Leaves out
// numbered copies and items that bear the folder's own name. When not
// recursive, looks only at the folder's children. A matching folder is twice in
// the list, before and after its contents. Empty for an empty name, and at "",
// "/" and ".".
std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive, const NameExclusion &filterWith);
std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive);

// Setting stop ends the walk with this item. Only a folder that can be entered
// is a directory here. One that then proves unreadable comes a second time, not
// as a directory.
using WalkHandler = std::function<void(const std::string &path, bool isDirectory, bool &stop)>;

// Passes every item below the path to the handler, each folder before its
// contents, never the root and never an item of another volume. False without a
// handler or a path, and when a folder fails during its reading; true
// otherwise.
bool kw_FTSWalkAtPath(NS::FileManager &manager, const std::string &path, bool recursive,
                      const WalkHandler &handler);

// Gets a path relative to the root of the search.
using PathFilter = std::function<bool(const std::string &relativePath)>;

// Returns the full paths of existing items below a path that pass the filter
// (all for an empty filter), in the order of the walk. Descends also into
// folders that do not pass. Drops dangling links.
std::vector<std::string> filesByEnumeratingAtPath(NS::FileManager &manager, const std::string &path,
                                                  const PathFilter &withFilterBlock);

} // namespace kw
