// Removes login items that applications registered with the service manager:
// takes them out of launchd's overrides database.
//
// Keeps no state; may be called from any thread, blocks until done. Nothing
// keeps launchd from writing the database at the same time; whoever writes
// last wins, and the file is whole either way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kw {

class KWServiceManagementRemover {
public:
  virtual ~KWServiceManagementRemover() = default;
  static KWServiceManagementRemover &shared();
  static KWServiceManagementRemover *exchangeShared(KWServiceManagementRemover *replacement);

  // Takes the login item's bundle identifier out of the database of the user
  // that this process runs as, and writes it back as an XML list with all else
  // unchanged. True as well when there is no database or none that can be
  // read, which then stays as it is. On failure the file is as it was, and the
  // description, when one is wanted, says why for people.
  virtual bool removeSMLoginItem(const std::optional<std::string> &bundleID,
                                 std::optional<std::string> *errorDesc) const;

protected:
  // Real user identifier of this process.
  virtual std::uint32_t userIdentifier() const;
};

} // namespace kw
