// Keeps the folders that the walk is in on a stack. Adds each finished item to
// the folder above it: its bytes always, and itself down to the depth that was
// asked for.
#include "CommandLine/MeasuredTree.h"

#include "CommandLine/Look.h"

#include <algorithm>

namespace kw {
namespace {

constexpr std::uint32_t kindOfItem = 0170000;
constexpr std::uint32_t folderKind = 0040000;
constexpr std::int64_t leftOut = 1;

MeasuredItem::Kind kindOf(NS::FTSInfo info) {
  switch (info) {
  case NS::FTSInfo::F:
    return MeasuredItem::Kind::File;
  case NS::FTSInfo::SL:
  case NS::FTSInfo::SLNONE:
    return MeasuredItem::Kind::Link;
  case NS::FTSInfo::D:
  case NS::FTSInfo::DC:
    return MeasuredItem::Kind::Folder;
  default:
    return MeasuredItem::Kind::Other;
  }
}

bool isLarger(const MeasuredItem &left, const MeasuredItem &right) {
  return left.bytes != right.bytes ? left.bytes > right.bytes : left.name < right.name;
}

void lower(MeasuredItem::Sight &sight, MeasuredItem::Sight other) {
  sight = std::max(sight, other);
}

} // namespace

std::optional<MeasuredTree> TreeMeasurer::measure(const std::string &path) {
  Walk walk;
  walk.root = path;
  int options = NS::FTSOption::PHYSICAL | (options_.oneVolume ? NS::FTSOption::XDEV : 0);
  auto &walks = NS::FTS::shared();
  auto stream = excluded_.isEmpty() ? walks.openForAll(path, options) : walks.open(path, options);
  bool isWhole = stream != nullptr;
  WatchedWalk watched(watch_);
  while (NS::FTSEntry *entry = isWhole ? stream->read() : nullptr) {
    visit(*stream, *entry, walk);
    isWhole = watched.count(*entry);
  }
  isWhole = isWhole && stream->failure() == 0;
  // Folders that the walk was in when it was given up.
  while (!walk.open.empty()) {
    MeasuredItem item = std::move(walk.open.back());
    walk.open.pop_back();
    lower(item.sight, MeasuredItem::Sight::Partial);
    close(std::move(item), static_cast<int>(walk.open.size()), walk);
  }
  if (!walk.result && isWhole)
    return std::nullopt;
  if (!walk.result) // the walk was given up before its first item
    walk.result = MeasuredItem{.name = path, .sight = MeasuredItem::Sight::Partial};
  return MeasuredTree{std::move(*walk.result), std::move(walk.unseen), isWhole};
}

bool TreeMeasurer::isLeftOut(const NS::FTSEntry &entry, const Walk &walk) const {
  if (entry.level == 0)
    return false;
  bool isElsewhere =
      options_.oneVolume && entry.info == NS::FTSInfo::D && entry.statp.device != walk.device;
  return isElsewhere || excluded_.names(entry.path);
}

std::uint64_t TreeMeasurer::bytesOf(const NS::FTSEntry &entry) {
  const NS::FTSStat &status = entry.statp;
  bool isFolder = (status.mode & kindOfItem) == folderKind;
  if (!isFolder && status.linkCount > 1 && !linked_.emplace(status.device, status.inode).second)
    return 0;
  return options_.apparent ? static_cast<std::uint64_t>(std::max<std::int64_t>(status.size, 0))
                           : status.allocatedBytes();
}

MeasuredItem TreeMeasurer::itemOf(const NS::FTSEntry &entry, const Walk &walk) {
  MeasuredItem item;
  item.name = entry.level == 0 ? walk.root : std::string(entry.name);
  item.kind = kindOf(entry.info);
  item.bytes = bytesOf(entry);
  return item;
}

void TreeMeasurer::missOut(const NS::FTSEntry &entry, MeasuredItem &item, Walk &walk) {
  item.sight = MeasuredItem::Sight::Partial;
  walk.unseen.emplace_back(entry.path);
}

void TreeMeasurer::lookBeyond(const NS::FTSEntry &entry, MeasuredItem &item, Walk &walk) const {
  auto held = heldBytes(beyond_, entry);
  if (!held)
    return missOut(entry, item, walk);
  lower(item.sight, MeasuredItem::Sight::Measured);
  item.bytes += *held;
}

void TreeMeasurer::visit(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk) {
  switch (entry.info) {
  case NS::FTSInfo::D:
    if (entry.level == 0)
      walk.device = entry.statp.device;
    if (isLeftOut(entry, walk)) {
      entry.number = leftOut;   // at its second visit too
      if (!excluded_.isEmpty()) // else the walk does not go in by itself
        stream.set(entry, NS::FTSInstruction::SKIP);
      return;
    }
    walk.open.push_back(itemOf(entry, walk));
    return;
  case NS::FTSInfo::DNR:
  case NS::FTSInfo::ERR:
  case NS::FTSInfo::DP: {
    if (entry.number == leftOut)
      return;
    MeasuredItem folder = std::move(walk.open.back());
    walk.open.pop_back();
    if (entry.info == NS::FTSInfo::DNR)
      lookBeyond(entry, folder, walk);
    else if (entry.info == NS::FTSInfo::ERR) // some of it was counted already
      missOut(entry, folder, walk);
    return close(std::move(folder), entry.level, walk);
  }
  case NS::FTSInfo::NS: {
    if (entry.level == 0 && presenceOf(walk.root) == Presence::Missing)
      return;
    MeasuredItem unseen = itemOf(entry, walk);
    lookBeyond(entry, unseen, walk);
    return close(std::move(unseen), entry.level, walk);
  }
  default:
    if (!isLeftOut(entry, walk))
      close(itemOf(entry, walk), entry.level, walk);
  }
}

void TreeMeasurer::close(MeasuredItem item, int level, Walk &walk) const {
  std::sort(item.children.begin(), item.children.end(), isLarger);
  if (walk.open.empty()) {
    walk.result = std::move(item);
    return;
  }
  MeasuredItem &above = walk.open.back();
  above.bytes += item.bytes;
  above.items += item.items;
  lower(above.sight, item.sight);
  if (level <= options_.depth)
    above.children.push_back(std::move(item));
}

} // namespace kw
