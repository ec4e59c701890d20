// Takes kernel extensions away.
//
// Keeps nothing between calls. Blocks until the tool has ended.
#pragma once

#include <string>

namespace kw {

class KWKextManager {
public:
  // Unloads the extension by its bundle identifier and deletes it. The unload
  // is best effort: an extension that stays loaded is deleted all the same and
  // gone after the next start. True when the bundle was deleted or was gone;
  // false, with nothing touched, for what has no bundle identifier.
  bool removeKextAtPath(const std::string &path) const;
};

} // namespace kw
