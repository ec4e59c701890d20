// Walks the tree, and lists for each open folder the removable items in it. When
// the walk leaves a folder in which nothing must stay, the folder takes the place
// of its list.
#include "CommandLine/RemovalPlan.h"

#include "CommandLine/Look.h"
#include "Foundation/Text/Unicode.h"

#include <filesystem>

namespace kw {
namespace {

std::string withoutSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/'))
    path.pop_back();
  return path;
}

// The item itself may be a link and is not followed.
std::string canonical(const std::string &path) {
  std::filesystem::path whole(path);
  std::error_code ignored;
  auto folder = std::filesystem::weakly_canonical(whole.parent_path(), ignored);
  return ignored ? path : (folder / whole.filename()).string();
}

std::uint64_t deviceOf(const std::string &path) {
  auto stream = NS::FTS::shared().open(path, NS::FTSOption::PHYSICAL);
  const NS::FTSEntry *entry = stream ? stream->read() : nullptr;
  return entry ? entry->statp.device : 0;
}

// Returns why the agent refuses the path, for any item there.
std::optional<std::string> refusalOf(const std::string &path) {
  if (!NS::isWellFormedUTF8(path))
    return path + " is not valid UTF-8 and cannot be sent to the agent";
  if (path == "/" || path.ends_with("/.") || path.ends_with("/.."))
    return path + " is never removed";
  return std::nullopt;
}

} // namespace

bool RemovalPlanner::isTaken(const std::string &path) const {
  if (taken_.contains(path))
    return true;
  std::string_view above = path;
  for (std::size_t slash; (slash = above.rfind('/')) != above.npos;) {
    above = above.substr(0, slash);
    if (taken_.contains(above))
      return true;
  }
  return false;
}

RemovalPlan RemovalPlanner::plan(const std::string &path) {
  Walk walk;
  walk.root = withoutSlashes(path);
  walk.canonicalRoot = canonical(walk.root);
  walk.folders.emplace_back(); // above the root
  if (isTaken(walk.root)) {
    walk.plan.exists = true;
    return walk.plan;
  }
  if (auto refusal = refusalOf(walk.root)) {
    walk.plan.exists = presenceOf(walk.root) != Presence::Missing;
    walk.plan.refusals.push_back(*refusal);
    return walk.plan;
  }
  walk.device = deviceOf(std::filesystem::path(walk.root).parent_path().string());
  auto stream = NS::FTS::shared().open(walk.root, NS::FTSOption::PHYSICAL | NS::FTSOption::XDEV);
  WatchedWalk watched(watch_);
  bool isWhole = stream != nullptr;
  while (NS::FTSEntry *entry = isWhole ? stream->read() : nullptr) {
    visit(*stream, *entry, walk);
    isWhole = watched.count(*entry);
  }
  if (!isWhole || stream->failure() != 0) {
    // A missing item may be removed, since nothing in it can be kept. This one
    // may be there.
    walk.plan.exists = true;
    walk.plan.unknown.push_back(walk.root);
    return walk.plan;
  }
  walk.plan.roots = std::move(walk.folders.front().removable);
  taken_.insert(walk.plan.roots.begin(), walk.plan.roots.end());
  return walk.plan;
}

bool RemovalPlanner::isKept(std::string_view path, const Walk &walk) const {
  if (keep_.isEmpty())
    return false;
  std::string other = walk.canonicalRoot + std::string(path.substr(walk.root.size()));
  if (keep_.names(path) || keep_.names(other))
    return true;
  return path.size() == walk.root.size() &&
         (keep_.holdsFolderOf(path) || keep_.holdsFolderOf(other));
}

// Marks all open folders: each holds an item that must stay.
void RemovalPlanner::keepBack(Walk &walk) {
  for (Folder &folder : walk.folders)
    folder.mustStay = true;
}

void RemovalPlanner::visit(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  if (entry.info == NS::FTSInfo::NS) {
    if (entry.level == 0 && presenceOf(path) == Presence::Missing)
      return;
    walk.plan.exists = true;
    noteUnknown(entry, walk);
    if (!keep_.isEmpty())
      return keepBack(walk);
    walk.folders.back().removable.push_back(std::move(path));
    return;
  }
  walk.plan.exists = true;
  switch (entry.info) {
  case NS::FTSInfo::D:
    return enter(stream, entry, walk);
  case NS::FTSInfo::DNR:
  case NS::FTSInfo::ERR:
    noteUnknown(entry, walk);
    if (!keep_.isEmpty())
      keepBack(walk);
    return leave(entry, walk);
  case NS::FTSInfo::DP:
    return leave(entry, walk);
  default:
    if (!isKept(path, walk))
      return take(entry, walk);
    walk.plan.kept.push_back(path);
    keepBack(walk);
  }
}

void RemovalPlanner::enter(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  walk.folders.emplace_back();
  if (isKept(path, walk)) {
    walk.plan.kept.push_back(path);
  } else if (walk.device != 0 && entry.statp.device != walk.device) {
    walk.plan.refusals.push_back(path + " is a mount point and is never removed");
  } else {
    if (taken_.contains(path))
      stream.set(entry, NS::FTSInstruction::SKIP);
    return;
  }
  keepBack(walk);
  stream.set(entry, NS::FTSInstruction::SKIP);
}

void RemovalPlanner::noteUnknown(const NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  auto held = heldBytes(measure_, entry);
  if (!held) {
    walk.plan.unknown.push_back(path);
    return;
  }
  walk.plan.allocatedBytes += *held;
  walk.plan.freedBytes += *held;
  walk.plan.largest.add(*held, path);
  walk.plan.measured.push_back(path);
}

void RemovalPlanner::take(const NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  if (!taken_.contains(path))
    count(entry, walk.plan);
  walk.folders.back().removable.push_back(std::move(path));
}

void RemovalPlanner::leave(const NS::FTSEntry &entry, Walk &walk) {
  Folder folder = std::move(walk.folders.back());
  walk.folders.pop_back();
  if (!folder.mustStay)
    return take(entry, walk);
  auto &above = walk.folders.back().removable;
  above.insert(above.end(), std::make_move_iterator(folder.removable.begin()),
               std::make_move_iterator(folder.removable.end()));
}

void RemovalPlanner::count(const NS::FTSEntry &entry, RemovalPlan &plan) {
  const NS::FTSStat &status = entry.statp;
  ++plan.items;
  std::uint64_t bytes = status.allocatedBytes();
  constexpr std::uint32_t kindOfItem = 0170000;
  constexpr std::uint32_t folder = 0040000;
  bool isFolder = (status.mode & kindOfItem) == folder;
  if (status.linkCount <= 1 || isFolder) {
    plan.allocatedBytes += bytes;
    plan.freedBytes += bytes;
    if (!isFolder)
      plan.largest.add(bytes, entry.path);
    return;
  }
  auto [found, isFirst] =
      linksLeft_.emplace(std::pair(status.device, status.inode), status.linkCount);
  if (isFirst) {
    plan.allocatedBytes += bytes;
    plan.largest.add(bytes, entry.path);
  }
  if (--found->second == 0)
    plan.freedBytes += bytes;
}

} // namespace kw
