// Removes kernel extensions.
//
// Keeps no state between calls. Blocks until the tool has ended.
#pragma once

#include <string>

namespace kw {

class KWKextManager {
public:
  // Unloads the extension by its bundle identifier and deletes it. The unload
  // is best effort: an extension that stays loaded is still deleted, and leaves
  // the kernel at the next start. True when the bundle was deleted or was gone;
  // false, without any change, for an item without a bundle identifier.
  bool removeKextAtPath(const std::string &path) const;
};

} // namespace kw
