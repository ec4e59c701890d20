// A folder of its own beside a destination, in which something is built before
// it is renamed into place. For bodies of the seam only.
#pragma once

#include "Foundation/POSIX/Descriptor.h"

#include <string>

namespace NS {

class Staging {
public:
  // The one name under which something is built.
  static constexpr const char *itemName = "item";

  Staging() = default;
  // Removes the folder and what is still in it.
  ~Staging();
  Staging(const Staging &) = delete;
  Staging &operator=(const Staging &) = delete;

  // Makes the folder, closed to other users, within the given one, after
  // removing those that processes left there that ended early. 0, or an errno
  // value.
  int open(int destination);
  int folder() const { return folder_.get(); }

private:
  int make(const std::string &name);

  Descriptor destination_;
  Descriptor folder_; // locked as long as it is open
  std::string name_;
};

} // namespace NS
