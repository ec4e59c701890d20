// The sizes of a tree, item by item: measured in one walk with the rights of
// the user and, beyond these, by the agent. A folder counts once, and a file
// once under all its names, as du counts.
#pragma once

#include "CommandLine/KeepList.h"
#include "CommandLine/Measure.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kw {

struct MeasuredItem {
  enum class Kind : std::uint8_t { File, Folder, Link, Other };
  enum class Sight : std::uint8_t {
    Whole,    // all of it was seen
    Measured, // the agent measured some of it, whose items are not counted
    Partial,  // some of it could neither be seen nor measured
  };

  std::string name; // of the root its path
  Kind kind = Kind::File;
  Sight sight = Sight::Whole;
  std::uint64_t bytes = 0;              // with all beneath
  std::uint64_t items = 1;              // itself and all beneath
  std::vector<MeasuredItem> children{}; // the largest first
};

struct MeasuredTree {
  MeasuredItem root;
  std::vector<std::string> unseen{}; // paths whose contents are not counted
  bool isWhole = true;               // the walk came to its end
};

struct MeasuringOptions {
  bool oneVolume = false;              // leaves out volumes mounted inside
  bool apparent = false;               // logical sizes of files instead of allocated ones
  std::vector<std::string> excluded{}; // patterns as those of KeepList
  // Deeper items are in the sums alone.
  int depth = std::numeric_limits<int>::max();
};

class TreeMeasurer {
public:
  TreeMeasurer(const MeasuringOptions &options, Measure beyond, Watch watch = nullptr)
      : options_(options), excluded_(options.excluded), beyond_(std::move(beyond)),
        watch_(std::move(watch)) {}

  // Empty when no item exists there. A file with several names counts in the
  // first tree that has one.
  std::optional<MeasuredTree> measure(const std::string &path);

private:
  struct Walk {
    std::string root;
    std::uint64_t device = 0;
    std::vector<MeasuredItem> open{}; // the folders that the walk is in
    std::optional<MeasuredItem> result = std::nullopt;
    std::vector<std::string> unseen{};
  };

  void visit(NS::FTSStream &stream, NS::FTSEntry &entry, Walk &walk);
  static void missOut(const NS::FTSEntry &entry, MeasuredItem &item, Walk &walk);
  void lookBeyond(const NS::FTSEntry &entry, MeasuredItem &item, Walk &walk) const;
  bool isLeftOut(const NS::FTSEntry &entry, const Walk &walk) const;
  MeasuredItem itemOf(const NS::FTSEntry &entry, const Walk &walk);
  std::uint64_t bytesOf(const NS::FTSEntry &entry);
  void close(MeasuredItem item, int level, Walk &walk) const;

  const MeasuringOptions options_;
  const KeepList excluded_;
  const Measure beyond_;
  const Watch watch_;
  std::set<std::pair<std::uint64_t, std::uint64_t>> linked_; // that were counted
};

} // namespace kw
