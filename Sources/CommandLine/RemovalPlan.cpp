// A walk that gives each folder the list of what can go from it, until it is
// known that the folder itself can.
#include "CommandLine/RemovalPlan.h"

#include <filesystem>

namespace kw {
namespace {

constexpr std::uint64_t blockBytes = 512;

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

bool isMissing(const std::string &path) {
  std::error_code ignored;
  return std::filesystem::symlink_status(path, ignored).type() ==
         std::filesystem::file_type::not_found;
}

} // namespace

bool RemovalPlanner::isTaken(const std::string &path) const {
  if (taken_.contains(path))
    return true;
  std::string_view above = path;
  for (std::size_t slash; (slash = above.rfind('/')) != above.npos && slash > 0;) {
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
  auto stream = NS::FTS::shared().open(walk.root, NS::FTSOption::PHYSICAL);
  if (!stream) {
    walk.plan.unknown.push_back(walk.root);
    return walk.plan;
  }
  while (NS::FTSEntry *entry = stream->read())
    visit(*stream, *entry, walk);
  stream->close();
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

// No folder above may go.
void RemovalPlanner::keepBack(Walk &walk) {
  for (Folder &folder : walk.folders)
    folder.mustStay = true;
}

void RemovalPlanner::visit(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  if (entry.info == NS::FTSInfo::NS) {
    if (entry.level == 0 && isMissing(path))
      return;
    walk.plan.exists = true;
    walk.plan.unknown.push_back(path);
    if (!keep_.isEmpty())
      return keepBack(walk);
    walk.folders.back().removable.push_back(std::move(path));
    return;
  }
  walk.plan.exists = true;
  switch (entry.info) {
  case NS::FTSInfo::D:
    walk.folders.emplace_back();
    if (isKept(path, walk)) {
      walk.plan.kept.push_back(path);
      keepBack(walk);
      stream.set(entry, NS::FTSInstruction::SKIP);
    } else if (taken_.contains(path)) {
      stream.set(entry, NS::FTSInstruction::SKIP);
    }
    return;
  case NS::FTSInfo::DNR:
  case NS::FTSInfo::ERR:
    walk.plan.unknown.push_back(path);
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

void RemovalPlanner::take(const NS::FTSEntry &entry, Walk &walk) {
  std::string path(entry.path);
  if (!taken_.contains(path))
    count(entry.statp, walk.plan);
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

void RemovalPlanner::count(const NS::FTSStat &status, RemovalPlan &plan) {
  ++plan.items;
  auto bytes = static_cast<std::uint64_t>(status.blocks) * blockBytes;
  constexpr std::uint32_t kindOfItem = 0170000;
  constexpr std::uint32_t folder = 0040000;
  if (status.linkCount <= 1 || (status.mode & kindOfItem) == folder) {
    plan.allocatedBytes += bytes;
    plan.freedBytes += bytes;
    return;
  }
  auto [found, isFirst] =
      linksLeft_.emplace(std::pair(status.device, status.inode), status.linkCount);
  if (isFirst)
    plan.allocatedBytes += bytes;
  if (--found->second == 0)
    plan.freedBytes += bytes;
}

} // namespace kw
