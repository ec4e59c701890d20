// The items that a removal would take and those that it would leave, found by a
// walk with the rights of the user. The walk changes nothing.
//
// A plan is of its moment: it does not see items that come into a folder
// afterwards, and its paths lead to the items at the time of their use. When
// others can change the tree meanwhile, removing it whole is safer than around
// something.
#pragma once

#include "CommandLine/KeepList.h"
#include "CommandLine/LargestItems.h"
#include "CommandLine/Measure.h"
#include "Foundation/Walking/FTS.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kw {

struct RemovalPlan {
  bool exists = false;
  // What to remove, each with all that it holds: as few items as there can be.
  std::vector<std::string> roots;
  // Items that the list keeps, without those inside of them.
  std::vector<std::string> kept;
  // The items that the walk could not look into. With a list they are left
  // alone, since they may hold something kept.
  std::vector<std::string> unknown;
  // The items that the walk could not look into but that were measured; their
  // contents are not counted.
  std::vector<std::string> measured;
  // The paths that the agent will not remove, as text.
  std::vector<std::string> refusals;
  std::uint64_t items = 0;
  std::uint64_t allocatedBytes = 0; // of the items, hard links once
  // Of those, the bytes that really become free: without files that have a hard
  // link outside.
  std::uint64_t freedBytes = 0;
  LargestItems largest{10}; // of the items
};

// Plans one item after the other. Counts no item twice that an earlier plan
// takes already, and knows the hard links among all of them.
class RemovalPlanner {
public:
  explicit RemovalPlanner(const KeepList &keep, Measure measure = nullptr, Watch watch = nullptr)
      : keep_(keep), measure_(std::move(measure)), watch_(std::move(watch)) {}

  // When the watch stops the walk, or when descriptors or memory run out, the
  // plan removes nothing, and the path is among its unknown items.
  RemovalPlan plan(const std::string &path);

private:
  // One open folder of the walk.
  struct Folder {
    std::vector<std::string> removable; // in it, if it cannot go itself
    bool mustStay = false;
  };
  struct Walk {
    RemovalPlan plan;
    std::string root;
    std::string canonicalRoot; // links of the folders above followed
    std::uint64_t device = 0;  // of the volume that may be changed
    std::vector<Folder> folders;
  };

  void visit(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk);
  void enter(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk);
  void leave(const NS::FTSEntry &entry, Walk &walk);
  void noteUnknown(const NS::FTSEntry &entry, Walk &walk);
  void take(const NS::FTSEntry &entry, Walk &walk);
  static void keepBack(Walk &walk);
  bool isKept(std::string_view path, const Walk &walk) const;
  bool isTaken(const std::string &path) const;
  void count(const NS::FTSEntry &entry, RemovalPlan &plan);

  const KeepList &keep_;
  const Measure measure_;
  const Watch watch_;
  std::set<std::string, std::less<>> taken_;
  // Of items with several links: those not met yet.
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> linksLeft_;
};

} // namespace kw
