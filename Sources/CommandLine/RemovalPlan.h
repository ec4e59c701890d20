// What removing an item would take and what it would leave, found by a walk
// with the rights of whoever runs the command. Nothing is changed.
//
// A plan is of the moment: what comes into a folder afterwards is not seen, and
// its paths lead where they lead when they are used. Where somebody else can
// change the tree meanwhile, removing it whole is safer than around something.
#pragma once

#include "CommandLine/KeepList.h"
#include "CommandLine/LargestItems.h"
#include "CommandLine/Measure.h"
#include "Foundation/FTS.h"

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
  // What could not be looked at. With a list it is left alone, since it may
  // hold something kept.
  std::vector<std::string> unknown;
  // What could not be looked at but was measured; its items are not counted.
  std::vector<std::string> measured;
  // What the agent will not remove, in words.
  std::vector<std::string> refusals;
  std::uint64_t items = 0;
  std::uint64_t allocatedBytes = 0; // of the items, hard links once
  // Of those, what really becomes free: not what has a hard link elsewhere.
  std::uint64_t freedBytes = 0;
  LargestItems largest{10}; // of the items
};

// Plans one item after the other. What an earlier plan takes already is not
// counted again, and hard links among all of them are known to go together.
class RemovalPlanner {
public:
  explicit RemovalPlanner(const KeepList &keep, Measure measure = nullptr, Watch watch = nullptr)
      : keep_(keep), measure_(std::move(measure)), watch_(std::move(watch)) {}

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
