// The system's lists of items that several programs share; here that of the
// login items for all users.
//
// Status values are 0 for success, as the platform's; any other is a failure.
// A list and its items may be used from one thread at a time.
#pragma once

#include "Foundation/URL.h"

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
  // What the item opens; fails when nothing stands there. On failure the URL
  // is as it was.
  virtual std::int32_t resolve(std::uint32_t flags, std::optional<URL> &url) = 0;
  virtual std::optional<std::string> displayName() = 0;
};

class SharedFileList {
public:
  virtual ~SharedFileList() = default;
  // The items as they are now. They do not follow later changes.
  virtual std::vector<std::shared_ptr<SharedFileListItem>> copySnapshot() = 0;
  // Takes an item of one of this list's snapshots off the list.
  virtual std::int32_t removeItem(SharedFileListItem &item) = 0;
};

class SharedFileLists {
public:
  virtual ~SharedFileLists() = default;
  static SharedFileLists &shared();
  static SharedFileLists *exchangeShared(SharedFileLists *replacement);

  // Null when there is no such list.
  virtual std::shared_ptr<SharedFileList> globalLoginItems() = 0;
};

} // namespace NS
