// Walks the tree once for each search.
#include "CommandLine/TreeSearch.h"

#include "CommandLine/KeepList.h"
#include "Foundation/Trees/FileManager.h"

#include <cerrno>
#include <functional>
#include <iterator>
#include <set>
#include <utility>

namespace kw {
namespace {

// Calls visit for each entry. Does not enter excluded folders. Returns 0 or the
// errno value of a walk that was given up.
int walk(const std::string &folder, const TreeQuery &query, const Watch &watch,
         const std::function<void(const NS::FTSEntry &entry, bool isExcluded)> &visit) {
  KeepList excluded(query.excluded);
  auto stream = NS::FTS::shared().open(folder, NS::FTSOption::PHYSICAL | NS::FTSOption::XDEV);
  if (!stream)
    return errno;
  WatchedWalk watched(watch);
  while (NS::FTSEntry *entry = stream->read()) {
    bool isExcluded = entry->level > 0 && excluded.names(entry->path);
    if (isExcluded && entry->info == NS::FTSInfo::D)
      stream->set(*entry, NS::FTSInstruction::SKIP);
    visit(*entry, isExcluded);
    if (!watched.count(*entry))
      return ECANCELED;
  }
  return stream->failure();
}

bool isOld(const std::string &path, const TreeQuery &query) {
  if (!query.unchangedSince)
    return true;
  auto attributes = NS::FileManager::defaultManager().attributesOfItemAtPath(path, nullptr);
  return attributes && attributes->modificationTime <= *query.unchangedSince;
}

// An open folder of the walk.
struct OpenFolder {
  bool isEmpty = true;
  std::vector<LargeItem> emptyBelow;
};

void move(std::vector<LargeItem> &from, std::vector<LargeItem> &to) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

} // namespace

TreeFindings filesIn(const std::string &folder, const TreeQuery &query, const Watch &watch) {
  LargestItems found(query.most);
  std::set<std::pair<std::uint64_t, std::uint64_t>> linked;
  int failure = walk(folder, query, watch, [&](const NS::FTSEntry &entry, bool isExcluded) {
    if (entry.info != NS::FTSInfo::F || isExcluded || !isOld(std::string(entry.path), query))
      return;
    const NS::FTSStat &status = entry.statp;
    if (status.linkCount <= 1 || linked.emplace(status.device, status.inode).second)
      found.add(status.allocatedBytes(), entry.path);
  });
  return {found.sorted(), failure};
}

TreeFindings emptyFoldersIn(const std::string &folder, const TreeQuery &query, const Watch &watch) {
  std::vector<LargeItem> found;
  std::vector<OpenFolder> open(1); // above the root
  std::uint64_t device = 0;
  int failure = walk(folder, query, watch, [&](const NS::FTSEntry &entry, bool isExcluded) {
    if (entry.info == NS::FTSInfo::D) {
      if (entry.level == 0)
        device = entry.statp.device;
      // The walk does not see the contents of a folder under another volume's
      // mount.
      open.emplace_back().isEmpty = !isExcluded && entry.statp.device == device;
      return;
    }
    bool isEnd = entry.info == NS::FTSInfo::DP || entry.info == NS::FTSInfo::DNR ||
                 entry.info == NS::FTSInfo::ERR;
    if (!isEnd) {
      open.back().isEmpty = false;
      return;
    }
    OpenFolder closed = std::move(open.back());
    open.pop_back();
    OpenFolder &above = open.back();
    if (!closed.isEmpty || entry.info != NS::FTSInfo::DP) {
      above.isEmpty = false;
      move(closed.emptyBelow, above.emptyBelow);
    } else {
      std::uint64_t bytes = entry.statp.allocatedBytes();
      for (const LargeItem &below : closed.emptyBelow)
        bytes += below.bytes;
      above.emptyBelow.push_back({bytes, std::string(entry.path)});
    }
    if (entry.level == 0)
      found = closed.isEmpty ? std::move(closed.emptyBelow) : std::move(above.emptyBelow);
  });
  return {std::move(found), failure};
}

} // namespace kw
