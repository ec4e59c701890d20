// How one step of a walk through a tree ended, and how the whole walk did.
//
// A bare errno value does not say what it is about: ENOENT can mean that the
// item asked about is gone, that an item beneath it has vanished, or that the
// walk has lost its way back up. These values say which. For bodies of the
// seam only.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>

namespace NS {

enum class TreeStep : std::uint8_t {
  Locate,   // opens the folder that holds the item asked about
  Look,     // asks for an item's status by its name
  Open,     // opens an item by its name
  Remove,   // removes an item by its name
  Identify, // asks an open item what it is
  List,     // reads on in an open folder
  GoUp,     // goes back to the folder above
  Check,    // finds whether the item is allowed, and the one that was looked at
  Compare,  // compares an original with what was copied of it
  Read,     // reads an open item's data or attributes
  Write,    // makes an item or writes its data
  Describe, // sets a new item's owner, attributes, mode and times
  Sync,     // brings a copy to the disk
  Place,    // renames an item to its place
  Cancel,   // finds that the requester wants no more
};

// Which tree of a copy a step was about. Walks with one tree know the original
// alone.
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

  // Nothing bears the name any more that the step was about. A walk passes over
  // such an item.
  bool isMissing() const {
    bool isByName = step_ == TreeStep::Look || step_ == TreeStep::Open || step_ == TreeStep::Remove;
    return errnum_ == ENOENT && isByName && side_ == TreeSide::Original;
  }
  // The name means a folder; who wanted to remove a file has to go into it.
  bool isFolder() const { return errnum_ == EISDIR && step_ == TreeStep::Remove; }
  // The name means another item than it did a moment ago.
  bool isExchanged() const { return errnum_ == ESTALE && step_ == TreeStep::Check; }

private:
  int errnum_ = 0;
  TreeStep step_ = TreeStep::Look;
  TreeSide side_ = TreeSide::Original;
};

// Whether the walk failed at the item that its caller named or beneath it.
enum class TreeItem : std::uint8_t { Asked, Inner };

// The step that ended a walk, and the item that it was about.
struct TreeFailure {
  StepOutcome outcome;
  TreeItem item = TreeItem::Asked;
  std::string path;

  // The item asked about does not exist, or no folder that could hold it does.
  bool isGone() const {
    bool isByName = outcome.step() == TreeStep::Locate || outcome.isMissing();
    return item == TreeItem::Asked && outcome.errnum() == ENOENT && isByName;
  }
};

// Nothing means success.
using TreeResult = std::optional<TreeFailure>;

} // namespace NS
