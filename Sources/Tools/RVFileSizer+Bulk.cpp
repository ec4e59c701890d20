// Measuring by reading the attributes of up to sixteen items per call.
#include "Tools/RVFileSizer.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Files/BulkAttributes.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

namespace kw {
namespace {

// Sixteen entries with names of 255 bytes.
constexpr std::size_t entryBufferSize = 4544;
constexpr std::uint32_t entriesPerCall = 16;
constexpr std::uint32_t blockSizeWhenUnknown = 4096;

// The record of one item: length, returned attributes, type, size, block size.
constexpr std::size_t itemRecordSize = 40;
constexpr std::size_t itemTypeOffset = 24;

// The record of an entry: length, name reference, type, size, block size.
constexpr std::size_t entryNameOffset = 4;
constexpr std::size_t entryTypeOffset = 12;
constexpr std::size_t smallestEntry = 28;

template <typename Value> Value valueAt(const char *bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

// Type, total size and I/O block size, as both records have them in a row.
struct Attributes {
  explicit Attributes(const char *bytes)
      : type(valueAt<std::uint32_t>(bytes)), totalSize(valueAt<std::uint64_t>(bytes + 4)),
        blockSize(valueAt<std::uint32_t>(bytes + 12)) {}

  bool isMeasured() const { return type == NS::VnodeRegular || type == NS::VnodeLink; }
  std::uint64_t roundedSize() const {
    std::uint64_t block = blockSize == 0 ? blockSizeWhenUnknown : blockSize;
    std::uint64_t excess = totalSize % block;
    return excess == 0 ? totalSize : totalSize + (block - excess);
  }

  std::uint32_t type;
  std::uint64_t totalSize;
  std::uint32_t blockSize;
};

void logAttributeError(int errnum) {
  NS::Log("Attribute getting error: %s", std::generic_category().message(errnum));
}

// The name in an entry's record; empty when the record contradicts itself.
std::string_view nameOfEntry(const char *entry, std::uint32_t length) {
  auto offset = valueAt<std::int32_t>(entry + entryNameOffset);
  auto size = valueAt<std::uint32_t>(entry + entryNameOffset + 4);
  std::int64_t start = static_cast<std::int64_t>(entryNameOffset) + offset;
  if (start < 0 || start + size > length)
    return {};
  std::string_view name(entry + start, size);
  return name.substr(0, name.find('\0'));
}

std::uint64_t sizeOfSubfolder(const RVFileSizer &sizer, char *path, std::uint64_t pathLen,
                              std::string_view name) {
  std::uint64_t length = pathLen + 1 + name.size();
  if (name.empty() || length >= RVFileSizer::alternativePathBufferSize) {
    logAttributeError(name.empty() ? EINVAL : ENAMETOOLONG);
    return 0;
  }
  path[pathLen] = '/';
  name.copy(path + pathLen + 1, name.size());
  path[length] = '\0';
  std::uint64_t size = 0;
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  int descriptor = bulk.openFolder(path);
  if (descriptor < 0) {
    logAttributeError(errno);
  } else {
    size = sizer.alternativeDirectorySizeDescriptor(descriptor, path, length);
    bulk.closeFolder(descriptor);
  }
  path[pathLen] = '\0';
  return size;
}

// Adds up the records of one batch, descending into its folders.
std::uint64_t sizeOfBatch(const RVFileSizer &sizer, const char *buffer, std::uint32_t count,
                          char *path, std::uint64_t pathLen) {
  std::uint64_t total = 0;
  std::size_t at = 0;
  for (std::uint32_t index = 0; index < count && at + smallestEntry <= entryBufferSize; ++index) {
    const char *entry = buffer + at;
    auto length = valueAt<std::uint32_t>(entry);
    if (length < smallestEntry || length > entryBufferSize - at)
      break;
    Attributes attributes(entry + entryTypeOffset);
    if (attributes.isMeasured())
      total += attributes.roundedSize();
    else if (attributes.type == NS::VnodeDirectory)
      total += sizeOfSubfolder(sizer, path, pathLen, nameOfEntry(entry, length));
    at += length;
  }
  return total;
}

std::uint64_t sizeOfFolder(const RVFileSizer &sizer, const std::string &path) {
  if (path.size() >= RVFileSizer::alternativePathBufferSize) {
    logAttributeError(ENAMETOOLONG);
    return 0;
  }
  std::array<char, RVFileSizer::alternativePathBufferSize> buffer{};
  path.copy(buffer.data(), path.size());
  NS::BulkAttributes &bulk = NS::BulkAttributes::shared();
  int descriptor = bulk.openFolder(buffer.data());
  if (descriptor < 0) {
    logAttributeError(errno);
    return 0;
  }
  std::uint64_t size =
      sizer.alternativeDirectorySizeDescriptor(descriptor, buffer.data(), path.size());
  bulk.closeFolder(descriptor);
  return size;
}

} // namespace

std::uint64_t RVFileSizer::alternativeItemSizeAtPath(const std::string &path) const {
  if (path.find('\0') != std::string::npos) {
    logAttributeError(EINVAL);
    return 0;
  }
  NS::AttributeList list;
  list.common = NS::CommonAttributeReturnedAttributes | NS::CommonAttributeObjectType;
  list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
  char record[itemRecordSize] = {};
  constexpr std::uint32_t options =
      NS::FileSystemOptionNoFollow | NS::FileSystemOptionPackInvalidAttributes;
  if (NS::BulkAttributes::shared().getattrlist(path.c_str(), list, record, sizeof record,
                                               options) != 0) {
    logAttributeError(errno);
    return 0;
  }
  Attributes attributes(record + itemTypeOffset);
  if (attributes.isMeasured())
    return attributes.roundedSize();
  return attributes.type == NS::VnodeDirectory ? sizeOfFolder(*this, path) : 0;
}

std::uint64_t RVFileSizer::alternativeDirectorySizeDescriptor(int descriptor, char *path,
                                                              std::uint64_t pathLen) const {
  NS::AttributeList list;
  list.common = NS::CommonAttributeName | NS::CommonAttributeObjectType;
  list.file = NS::FileAttributeTotalSize | NS::FileAttributeIOBlockSize;
  // On the heap: the recursion is as deep as the path buffer allows.
  auto buffer = std::make_unique<char[]>(entryBufferSize);
  std::uint64_t total = 0;
  int result = 0;
  do {
    std::uint32_t count = entriesPerCall;
    std::uint32_t base = 0;
    std::uint32_t state = 0;
    result = NS::BulkAttributes::shared().getdirentriesattr(descriptor, list, buffer.get(),
                                                            entryBufferSize, count, base, state, 0);
    if (result < 0)
      logAttributeError(errno);
    else
      total += sizeOfBatch(*this, buffer.get(), count, path, pathLen);
  } while (result != 1);
  return total;
}

} // namespace kw
