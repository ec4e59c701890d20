// Writes the packed records that BulkAttributes.h describes.
//
// Pure; any thread.
#pragma once

#include "Foundation/Files/BulkAttributes.h"

namespace NS {

// The attributes of one item; the sizes are 0 for a folder.
struct ItemAttributes {
  std::uint32_t type = 0;
  std::uint64_t totalSize = 0;
  std::uint32_t blockSize = 0;
};

// Writes the record with the attributes that the list asks for, without a name
// if there is none. Returns the record's length, or 0 when it does not fit.
std::size_t writeAttributeRecord(void *buffer, std::size_t size, const AttributeList &list,
                                 const char *name, const ItemAttributes &attributes);

} // namespace NS
