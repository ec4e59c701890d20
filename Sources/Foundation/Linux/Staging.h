// A folder of its own near a destination, in which something is built before it
// is renamed into place. Internal to Foundation.
#pragma once

#include "Foundation/Linux/TreeOutcome.h"
#include "Foundation/POSIX/Descriptor.h"

#include <string>

namespace NS {

class Staging {
public:
  // The one name under which something is built.
  static constexpr const char *itemName = "item";

  Staging() = default;
  // Removes the folder and its remaining contents.
  ~Staging();
  Staging(const Staging &) = delete;
  Staging &operator=(const Staging &) = delete;

  // Makes the folder, closed to other users, within the given one, after
  // removing those that processes left there that ended early. Nothing can be
  // removed from an append-only destination, so the folder is then made in the
  // nearest folder above it on its volume that is not. Fails with
  // EPERM when there is none or the destination is immutable.
  StepOutcome open(int destination);
  int folder() const { return folder_.get(); }

  // A folder beside the item for further names of the files in it, made at the
  // first call. -1 where it cannot be made.
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
