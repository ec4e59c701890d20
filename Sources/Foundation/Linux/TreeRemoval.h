// The one walk that removes a tree, plainly or with what is done to each file
// before it goes. It is not the walk that lists a tree: that one asks for each
// entry's status and reads ahead, which removal neither needs nor could bear,
// for what was read ahead would be gone or exchanged when its turn comes.
// For bodies of the seam only.
#pragma once

#include "Foundation/Linux/TreeOperations.h"

#include <string>

namespace NS {

struct ItemLocation;

// What a removal does to each item. May be called by several threads at once.
class ItemEraser {
public:
  virtual ~ItemEraser() = default;
  // Removes one item that is no folder, and counts it in the current progress.
  // isFolder() when the name is a folder's. The type is the folder's entry type
  // and may be out of date.
  virtual StepOutcome erase(int folder, const char *name, unsigned char type) = 0;
  // Whether an open folder may be emptied and removed.
  virtual StepOutcome admit(int /*folder*/) { return {}; }
  // Counts a folder that was removed.
  virtual void countFolder();
};

// Unlinks, whatever the item is.
class PlainEraser final : public ItemEraser {
public:
  StepOutcome erase(int folder, const char *name, unsigned char type) override;
};

StepOutcome unlinkItem(int folder, const char *name);

enum class Recursion { OnlyTheItem, WholeTree };

// Removes the item at the path and, for a whole tree, all beneath it; without,
// only an empty folder goes. The folders directly within it are shared out to
// a few threads when there are many. Stops at the first failure, and when the
// progress of the calling thread is cancelled, each thread at its next item.
TreeResult removeTree(const std::string &path, ItemEraser &eraser, Recursion recursion);
// The same for an item that was located before; its path serves for messages.
TreeResult removeTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser,
                      Recursion recursion);

} // namespace NS
