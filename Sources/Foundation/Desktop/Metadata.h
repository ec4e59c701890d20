// Entries of the system's index about an item, without a look at the item.
// Hosts without an index have no entries.
//
// Any thread may use the store. Only one thread at a time may use an item.
#pragma once

#include "Foundation/Base/Object.h"
#include "Foundation/Base/SharedInstance.h"

#include <memory>
#include <string>

namespace NS {

inline constexpr const char *MetadataPhysicalSizeKey = "kMDItemPhysicalSize";
inline constexpr const char *MetadataLastUsedDateKey = "kMDItemLastUsedDate";
inline constexpr const char *MetadataContentModificationDateKey = "kMDItemContentModificationDate";

class MetadataItem {
public:
  virtual ~MetadataItem() = default;
  // Null when the index does not hold the attribute.
  virtual std::shared_ptr<Object> copyAttribute(const std::string &name) = 0;
};

class MetadataStore : public SharedInstance<MetadataStore> {
public:
  virtual ~MetadataStore() = default;
  static MetadataStore &real();

  // Null when the index does not know the path.
  virtual std::unique_ptr<MetadataItem> createItem(const std::string &path) = 0;
};

} // namespace NS
