// The system's lists of items that several programs share. The only list here
// is that of the login items for all users.
//
// Status values are 0 for success, as on the platform; any other is a failure.
// Only one thread at a time may use a list and its items. Calls block on the
// disk or on the platform's services. On Linux, the list and its snapshots throw
// ResourceShortage when this process lacks the descriptors or the memory to read
// them now.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Files/URL.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NS {

enum SharedFileListResolutionFlags : std::uint32_t {
  SharedFileListNoUserInteraction = 1,
  SharedFileListDoNotMountVolumes = 2,
};

class SharedFileListItem {
public:
  virtual ~SharedFileListItem() = default;
  // Stores the URL that the item opens; fails when no item exists there. On
  // failure the URL is unchanged; so it is on success when UTF-8 cannot express
  // the path.
  virtual std::int32_t resolve(std::uint32_t flags, std::optional<URL> &url) = 0;
  // The name that users see; empty when the item has none.
  virtual std::optional<std::string> displayName() = 0;
};

class SharedFileList {
public:
  virtual ~SharedFileList() = default;
  // The present items. They do not follow later changes.
  virtual std::vector<std::shared_ptr<SharedFileListItem>> copySnapshot() = 0;
  // Removes an item of one of this list's snapshots from the list. EINVAL for an
  // object of another kind.
  virtual std::int32_t removeItem(SharedFileListItem &item) = 0;
};

class SharedFileLists : public SharedInstance<SharedFileLists> {
public:
  virtual ~SharedFileLists() = default;
  static SharedFileLists &real();

  // Null when there is no such list.
  virtual std::shared_ptr<SharedFileList> globalLoginItems() = 0;
};

} // namespace NS
