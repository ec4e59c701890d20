// What removing an item would take and what it would leave, found by a walk
// with the rights of whoever runs the command. Nothing is changed.
//
// A plan is of the moment: what comes into a folder afterwards is not seen, and
// its paths lead where they lead when they are used. Where somebody else can
// change the tree meanwhile, removing it whole is safer than around something.
#pragma once

#include "CommandLine/KeepList.h"
#include "Foundation/FTS.h"

#include <cstdint>
#include <functional>
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
};

// The bytes that a folder or an item occupies that this user cannot look into;
// nothing when that cannot be learnt.
using Measure = std::function<std::optional<std::uint64_t>(const std::string &path)>;

// Plans one item after the other. What an earlier plan takes already is not
// counted again, and hard links among all of them are known to go together.
class RemovalPlanner {
public:
  // A removal ends at what is mounted inside, a measurement goes in.
  enum class Volumes { One, All };

  explicit RemovalPlanner(const KeepList &keep, Volumes volumes = Volumes::One,
                          Measure measure = nullptr)
      : keep_(keep), volumes_(volumes), measure_(std::move(measure)) {}

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
  bool isOtherVolume(const NS::FTSEntry &entry, const Walk &walk) const;
  void take(const NS::FTSEntry &entry, Walk &walk);
  static void keepBack(Walk &walk);
  bool isKept(std::string_view path, const Walk &walk) const;
  bool isTaken(const std::string &path) const;
  void count(const NS::FTSStat &status, RemovalPlan &plan);

  const KeepList &keep_;
  const Volumes volumes_;
  const Measure measure_;
  std::set<std::string, std::less<>> taken_;
  // Of items with several links: those not met yet.
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> linksLeft_;
};

} // namespace kw
