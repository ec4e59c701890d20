// A bundle in the platform's layout: its identifier, its executable and its
// string tables.
//
// Each list is read at its first use, and stays as it was then. Any thread may use
// a bundle. Members throw ResourceShortage when this process lacks the descriptors
// or the memory to read the information list now.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <memory>
#include <optional>
#include <string>

namespace NS {

class Bundle : public SharedInstance<Bundle> {
public:
  virtual ~Bundle() = default;

  // The bundle of this program. On hosts without bundles it is the resource
  // folder, beside the build tree's programs or as installed.
  static Bundle &mainBundle() { return shared(); }
  static Bundle &real();
  // Null when there is no folder at the path. Follows links.
  static std::shared_ptr<Bundle> bundleWithPath(const std::string &path);

  // The text of a key in a table ("Localizable" when the table is nil). A
  // missing key gives the value, or the key itself when the value is empty or
  // nil; so does a table that cannot be read for lack of descriptors.
  virtual std::string localizedStringForKey(const std::string &key,
                                            const std::optional<std::string> &value,
                                            const std::optional<std::string> &table) = 0;
  // A string of the information list; empty when absent or of another type.
  virtual std::optional<std::string> infoString(const std::string &key) = 0;
  // The path of the bundle's executable; empty when it has none.
  virtual std::optional<std::string> executablePath() = 0;
};

} // namespace NS
