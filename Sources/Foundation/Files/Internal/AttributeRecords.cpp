// Packed records, field by field.
#include "Foundation/Files/Internal/AttributeRecords.h"

#include <cstring>

namespace NS {
namespace {

// Writes a record's fields one after the other, as far as they fit.
class RecordWriter {
public:
  RecordWriter(void *buffer, std::size_t size) : start_(static_cast<char *>(buffer)), size_(size) {}

  template <typename Value> void put(Value value) { copy(used_, &value, sizeof value); }
  template <typename Value> void putAt(std::size_t offset, Value value) {
    std::size_t used = used_;
    copy(offset, &value, sizeof value);
    used_ = used;
  }
  void putName(const char *name, std::size_t length) {
    static constexpr char padding[4] = {};
    copy(used_, name, length);
    copy(used_, padding, 4 - length % 4); // the NUL and up to three more
  }
  std::size_t used() const { return used_; }
  bool overflowed() const { return overflowed_; }

private:
  void copy(std::size_t offset, const void *bytes, std::size_t count) {
    if (offset + count > size_)
      overflowed_ = true;
    else
      std::memcpy(start_ + offset, bytes, count);
    used_ = offset + count;
  }

  char *start_;
  std::size_t size_;
  std::size_t used_ = 0;
  bool overflowed_ = false;
};

} // namespace

std::size_t writeAttributeRecord(void *buffer, std::size_t size, const AttributeList &list,
                                 const char *name, const ItemAttributes &attributes) {
  RecordWriter writer(buffer, size);
  writer.put(std::uint32_t{0});
  if (list.common & CommonAttributeReturnedAttributes) {
    bool isFolder = attributes.type == VnodeDirectory;
    writer.put(list.common);
    writer.put(list.volume);
    writer.put(list.directory);
    writer.put(isFolder ? std::uint32_t{0} : list.file);
    writer.put(list.fork);
  }
  std::size_t reference = writer.used();
  bool named = name && (list.common & CommonAttributeName);
  std::size_t nameLength = named ? std::strlen(name) : 0;
  if (named) {
    writer.put(std::int32_t{0});
    writer.put(static_cast<std::uint32_t>(nameLength + 1));
  }
  if (list.common & CommonAttributeObjectType)
    writer.put(attributes.type);
  if (list.file & FileAttributeTotalSize)
    writer.put(attributes.totalSize);
  if (list.file & FileAttributeIOBlockSize)
    writer.put(attributes.blockSize);
  if (named) {
    writer.putAt(reference, static_cast<std::int32_t>(writer.used() - reference));
    writer.putName(name, nameLength);
  }
  writer.putAt(0, static_cast<std::uint32_t>(writer.used()));
  return writer.overflowed() ? 0 : writer.used();
}

} // namespace NS
