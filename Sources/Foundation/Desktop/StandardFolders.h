// The folders of the host for its users' data: the standard folders and the
// temporary one.
//
// Thread-safe. No call makes a folder or checks whether it exists.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <string>
#include <vector>

namespace NS {

// The platform's numbers. A host may know fewer kinds than these.
enum class SearchPathDirectory : std::uint64_t {
  Application = 1,
  Library = 5,
  Document = 9,
  Desktop = 12,
  Caches = 13,
  ApplicationSupport = 14,
  Downloads = 15,
  Movies = 17,
  Music = 18,
  Pictures = 19,
  SharedPublic = 21,
  Trash = 102,
};

// Bits as the platform numbers them.
enum SearchPathDomainMask : std::uint64_t {
  UserDomainMask = 1,
  LocalDomainMask = 2,
  NetworkDomainMask = 4,
  SystemDomainMask = 8,
  AllDomainsMask = 0xffff,
};

class StandardFolders : public SharedInstance<StandardFolders> {
public:
  virtual ~StandardFolders() = default;
  static StandardFolders &real();

  // The folders of that kind in the given domains, the user's first; empty when
  // the host has none. Without expansion the user's home is written "~".
  virtual std::vector<std::string>
  searchPathForDirectoriesInDomains(SearchPathDirectory directory, SearchPathDomainMask domainMask,
                                    bool expandTilde) = 0;
  // An absolute path.
  virtual std::string temporaryDirectory() = 0;
};

} // namespace NS
