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

// Removes one item that is no folder. May be called by several threads at once.
class ItemEraser {
public:
  virtual ~ItemEraser() = default;
  // 0 when the name is gone, EISDIR when it is a folder's, else an errno
  // value. The type is the folder's entry type and may be out of date.
  virtual int erase(int folder, const char *name, unsigned char type) = 0;
};

// Unlinks, whatever the item is.
class PlainEraser final : public ItemEraser {
public:
  int erase(int folder, const char *name, unsigned char type) override;
};

enum class Recursion { OnlyTheItem, WholeTree };

// Removes the item at the path and, for a whole tree, all beneath it; without,
// only an empty folder goes. The folders directly within it are shared out to
// a few threads when there are many. Stops at the first failure, each thread at
// its next item.
TreeResult removeTree(const std::string &path, ItemEraser &eraser, Recursion recursion);
// The same for an item that was located before; its path serves for messages.
TreeResult removeTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser,
                      Recursion recursion);

} // namespace NS
