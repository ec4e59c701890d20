// Reads data of either format, of a file or of memory.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Foundation/Files/FileContents.h"
#include "Foundation/PropertyLists/Internal/PropertyListReading.h"

namespace NS {

std::optional<PropertyList> propertyListWithData(std::string_view data, ErrorSlot error) {
  std::optional<PropertyList> list;
  if (data.size() <= PropertyListBounds::dataSize)
    list = data.starts_with("bplist") ? readBinaryPropertyList(data) : readXMLPropertyList(data);
  if (!list)
    storeError(error, Error(CocoaErrorDomain, PropertyListReadCorruptError,
                            userInfoWith(LocalizedDescriptionKey,
                                         "The data is not a property list that can be read.")));
  return list;
}

std::optional<PropertyList> dictionaryWithContentsOfFile(const std::string &path) {
  auto data = FileContents::shared().dataIfReadable(path);
  auto list = data ? propertyListWithData(*data, nullptr) : std::nullopt;
  return list && list->dictionary() ? list : std::nullopt;
}

} // namespace NS
