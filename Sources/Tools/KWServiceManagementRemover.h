// Removes login items that applications registered with the service manager:
// deletes them from launchd's overrides database.
//
// Keeps no state; any thread may call it, and it blocks until done. launchd may
// write the database at the same time; the later write wins, and the file is
// whole either way.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kw {

class KWServiceManagementRemover : public NS::SharedInstance<KWServiceManagementRemover> {
public:
  virtual ~KWServiceManagementRemover() = default;
  static KWServiceManagementRemover &real();

  // Deletes the login item's bundle identifier from the database of this
  // process's user, and writes it back as an XML list with all else unchanged.
  // True also when there is no database, or an unreadable one, which then stays
  // as it is. On failure the file is unchanged, and the description, when the
  // caller wants one, gives the reason as text for people.
  virtual bool removeSMLoginItem(const std::optional<std::string> &bundleID,
                                 std::optional<std::string> *errorDesc) const;

protected:
  // Real user identifier of this process.
  virtual std::uint32_t userIdentifier() const;
};

} // namespace kw
