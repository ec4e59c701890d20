// A folder near a destination in which a move builds a copy before it is
// renamed into place. Internal to Foundation.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Walking/Internal/TreeOutcome.h"

#include <string>

namespace NS {

class Staging {
public:
  // The name of the copy within it.
  static constexpr const char *itemName = "item";

  Staging() = default;
  // Removes the folder and its remaining contents.
  ~Staging();
  Staging(const Staging &) = delete;
  Staging &operator=(const Staging &) = delete;

  // Makes the folder, closed to other users, within the given one, after
  // removing the leftovers of processes that ended early. Items cannot be
  // removed from an append-only destination, so the folder is then in the
  // nearest folder above it on its volume that is not append-only. Fails with
  // EPERM when there is none or the destination is immutable.
  StepOutcome open(int destination);
  int folder() const { return folder_.get(); }

  // A folder beside the item for further names of the files in it, made at the
  // first call. -1 when it cannot be made.
  int links();
  // Removes that folder.
  void dropLinks();

private:
  int make(const std::string &name);

  Descriptor parent_;
  Descriptor folder_; // locked as long as it is open
  Descriptor links_;
  std::string name_;
};

} // namespace NS
