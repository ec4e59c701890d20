// The one walk that removes a tree, plainly or after work on each file. It is
// not the walk that lists a tree: that one asks for each entry's status and
// reads ahead. A removal needs no status, and items that were read ahead could
// be gone or exchanged when their turn comes. Internal to Foundation.
#pragma once

#include "Foundation/Trees/Internal/TreeOperations.h"

#include <string>

namespace NS {

struct ItemLocation;

// The work of a removal on each item. Several threads may call it at once.
class ItemEraser {
public:
  virtual ~ItemEraser() = default;
  // Removes one item that is not a folder, and counts it in the current
  // progress. isFolder() when the name is a folder's. The type is the folder's
  // entry type and may be out of date.
  virtual StepOutcome erase(int folder, const char *name, unsigned char type) = 0;
  // Tells whether an open folder may be emptied and removed.
  virtual StepOutcome admit(int /*folder*/) { return {}; }
  // Counts a folder that was removed.
  virtual void countFolder();
};

// Unlinks items of any kind.
class PlainEraser final : public ItemEraser {
public:
  StepOutcome erase(int folder, const char *name, unsigned char type) override;
};

// Unlinks an item that is not a folder, and counts nothing. isFolder() for a
// folder.
StepOutcome unlinkItem(int folder, const char *name);

enum class Recursion { OnlyTheItem, WholeTree };

// Removes the item at the path with the eraser. For a whole tree it removes all
// items beneath it too; otherwise only an empty folder goes. When there are many
// folders directly within it, a few threads share them. Stops at the first
// failure, and when the progress of the calling thread is cancelled, each thread
// at its next item.
TreeResult eraseItemAtPath(const std::string &path, ItemEraser &eraser, Recursion recursion);
// Removes the whole tree of an item that was located before, in the same way.
// Its path is only for messages.
TreeResult eraseTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser);

} // namespace NS
