// The outcome of one step of a walk through a tree, and of the whole walk.
//
// A bare errno value does not name its subject: ENOENT can mean that the
// requested item is gone, that an item beneath it has vanished, or that the
// walk has lost its way back up. These values name it. Internal to Foundation.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>

namespace NS {

enum class TreeStep : std::uint8_t {
  Locate,   // opens the folder that holds the requested item
  Look,     // asks for an item's status by its name
  Open,     // opens an item by its name
  Remove,   // removes an item by its name
  Identify, // asks an open item for its identity
  List,     // reads on in an open folder
  GoUp,     // goes back to the folder above
  Check,    // checks whether the item is permitted, and the one that was looked at
  Compare,  // compares an original with the record of its copy
  Read,     // reads an open item's data or attributes
  Write,    // makes an item or writes its data
  Describe, // sets a new item's owner, attributes, mode and times
  Sync,     // syncs a copy to the disk
  Place,    // renames an item to its place
  Cancel,   // finds that the requester has cancelled
};

// The tree of a copy that a step concerns. Walks with one tree know only the
// original.
enum class TreeSide : std::uint8_t { Original, Copy };

// Done, or failed with an errno value.
class [[nodiscard]] StepOutcome {
public:
  StepOutcome() = default; // done
  // An errno value of 0 means done.
  constexpr StepOutcome(TreeStep step, int errnum, TreeSide side = TreeSide::Original)
      : errnum_(errnum), step_(step), side_(side) {}

  bool isDone() const { return errnum_ == 0; }
  bool isFailed() const { return errnum_ != 0; }
  int errnum() const { return errnum_; }
  TreeStep step() const { return step_; }
  TreeSide side() const { return side_; }

  // The name of the step no longer exists. A walk passes over such an item.
  bool isMissing() const {
    bool isByName = step_ == TreeStep::Look || step_ == TreeStep::Open || step_ == TreeStep::Remove;
    return errnum_ == ENOENT && isByName && side_ == TreeSide::Original;
  }
  // The name means a folder; a walk that wanted to remove a file has to enter
  // it.
  bool isFolder() const { return errnum_ == EISDIR && step_ == TreeStep::Remove; }
  // The name means another item than a moment ago.
  bool isExchanged() const { return errnum_ == ESTALE && step_ == TreeStep::Check; }

private:
  int errnum_ = 0;
  TreeStep step_ = TreeStep::Look;
  TreeSide side_ = TreeSide::Original;
};

// Whether the walk failed at the requested item or beneath it.
enum class TreeItem : std::uint8_t { Asked, Inner };

// The step that ended a walk, and its item.
struct TreeFailure {
  StepOutcome outcome;
  TreeItem item = TreeItem::Asked;
  std::string path;

  // The requested item does not exist, or no folder exists that could hold it.
  bool isGone() const {
    bool isByName = outcome.step() == TreeStep::Locate || outcome.isMissing();
    return item == TreeItem::Asked && outcome.errnum() == ENOENT && isByName;
  }
};

// Empty means success.
using TreeResult = std::optional<TreeFailure>;

} // namespace NS
