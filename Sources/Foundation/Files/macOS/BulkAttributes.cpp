// Attributes of many items by getattrlist and getattrlistbulk. The platform's
// getdirentriesattr works only on few kinds of volumes now; getattrlistbulk
// works on all. This file packs its records anew as those of getdirentriesattr.
#include "Foundation/Files/BulkAttributes.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Files/Internal/AttributeRecords.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/attr.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#if __has_include(<sys/vnode.h>)
#include <sys/vnode.h>
#endif

namespace NS {
namespace {

static_assert(sizeof(AttributeList) == sizeof(attrlist));
static_assert(offsetof(AttributeList, common) == offsetof(attrlist, commonattr));
static_assert(offsetof(AttributeList, file) == offsetof(attrlist, fileattr));
static_assert(AttributeList().bitmapCount == ATTR_BIT_MAP_COUNT);
static_assert(CommonAttributeName == ATTR_CMN_NAME);
static_assert(CommonAttributeObjectType == ATTR_CMN_OBJTYPE);
static_assert(CommonAttributeReturnedAttributes == ATTR_CMN_RETURNED_ATTRS);
static_assert(FileAttributeTotalSize == ATTR_FILE_TOTALSIZE);
static_assert(FileAttributeIOBlockSize == ATTR_FILE_IOBLOCKSIZE);
static_assert(FileSystemOptionNoFollow == FSOPT_NOFOLLOW);
static_assert(FileSystemOptionPackInvalidAttributes == FSOPT_PACK_INVAL_ATTRS);
#if __has_include(<sys/vnode.h>)
static_assert(VnodeRegular == VREG && VnodeDirectory == VDIR && VnodeBlockDevice == VBLK);
static_assert(VnodeCharacterDevice == VCHR && VnodeLink == VLNK && VnodeSocket == VSOCK);
static_assert(VnodeFIFO == VFIFO);
#endif

// The sizes in bytes of the smallest and of the largest record that
// getattrlistbulk gives for an item. Each record has its length, the returned
// attributes, the reference of the name and the type; an item other than a folder
// has two sizes (8 and 4 bytes) too; the name is at the end.
constexpr std::size_t smallestRecord = 4 + sizeof(attribute_set_t) + 8 + 4 + 4;
constexpr std::size_t largestName = 3 * 255 + 1;
constexpr std::size_t largestRecord = smallestRecord + 12 + largestName;
// The fewest records that a caller may ask for. From this number on, the larger
// buffer of the second attempt in Batch::read cannot yield more records than
// wanted: the first record takes most of it.
constexpr std::uint32_t fewestWanted = 16;

attrlist platformList(const AttributeList &list) {
  attrlist wanted;
  std::memcpy(&wanted, &list, sizeof wanted);
  return wanted;
}

// Reads the fields of a record one after the other.
class RecordReader {
public:
  explicit RecordReader(const char *record) : at_(record) {}
  template <typename Value> Value take() {
    Value value;
    std::memcpy(&value, at_, sizeof value);
    at_ += sizeof value;
    return value;
  }
  const char *position() const { return at_; }

private:
  const char *at_;
};

struct BulkRecord {
  const char *name = nullptr; // null when the item's attributes are unknown
  ItemAttributes attributes;
};

BulkRecord bulkRecordAt(const char *start) {
  RecordReader reader(start);
  static_cast<void>(reader.take<std::uint32_t>()); // the length
  auto returned = reader.take<attribute_set_t>();
  BulkRecord record;
  if (returned.commonattr & ATTR_CMN_ERROR)
    return record;
  if (returned.commonattr & ATTR_CMN_NAME) {
    const char *reference = reader.position();
    record.name = reference + reader.take<attrreference_t>().attr_dataoffset;
  }
  if (returned.commonattr & ATTR_CMN_OBJTYPE)
    record.attributes.type = reader.take<std::uint32_t>();
  if (returned.fileattr & ATTR_FILE_TOTALSIZE)
    record.attributes.totalSize = reader.take<std::uint64_t>();
  if (returned.fileattr & ATTR_FILE_IOBLOCKSIZE)
    record.attributes.blockSize = reader.take<std::uint32_t>();
  return record;
}

// One batch of the platform's records, and our records made from them.
class Batch {
public:
  Batch(int descriptor, const AttributeList &list) : descriptor_(descriptor), list_(list) {}

  // Returns the number of records, 0 at the end, -1 with errno set: at most the
  // wanted number, and at most as many as fit into so many bytes in our form.
  int read(std::uint32_t wanted, std::size_t size) {
    int count = readInto(std::min(size, wanted * smallestRecord));
    // ERANGE: not even the first record fits, so this needs room for the largest.
    return count < 0 && errno == ERANGE ? readInto(std::min(size, largestRecord)) : count;
  }

  // Returns the number of written records; leaves out items that are gone
  // already.
  std::uint32_t write(int count, void *buffer, std::size_t size) const {
    std::uint32_t written = 0;
    const char *record = bytes_.get();
    char *next = static_cast<char *>(buffer);
    for (int index = 0; index < count; ++index) {
      if (BulkRecord item = bulkRecordAt(record); item.name) {
        std::size_t length = writeAttributeRecord(next, size, list_, item.name, item.attributes);
        next += length;
        size -= length;
        ++written;
      }
      record += RecordReader(record).take<std::uint32_t>();
    }
    return written;
  }

private:
  int readInto(std::size_t size) {
    bytes_ = std::make_unique<char[]>(size);
    attrlist wanted = platformList(list_);
    wanted.commonattr |= ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_ERROR;
    return retrying([&] { return ::getattrlistbulk(descriptor_, &wanted, bytes_.get(), size, 0); });
  }

  int descriptor_;
  const AttributeList &list_;
  std::unique_ptr<char[]> bytes_;
};

// Tells whether the same call can succeed later.
bool mayPass(int error) {
  return error == ENOMEM || error == EAGAIN || error == ERANGE;
}

class PlatformAttributes final : public BulkAttributes {
public:
  int getattrlist(const char *path, const AttributeList &list, void *buffer, std::size_t size,
                  std::uint32_t options) override {
    attrlist wanted = platformList(list);
    return ::getattrlist(path, &wanted, buffer, size, options);
  }

  int getdirentriesattr(int descriptor, const AttributeList &list, void *buffer, std::size_t size,
                        std::uint32_t &count, std::uint32_t & /*base*/, std::uint32_t & /*state*/,
                        std::uint32_t /*options*/) override {
    std::uint32_t wanted = std::exchange(count, 0);
    if (wanted < fewestWanted) {
      errno = ERANGE;
      return -1;
    }
    Batch batch(descriptor, list);
    int found = batch.read(wanted, size);
    if (found < 0 && !mayPass(errno)) {
      Log("A folder cannot be read to its end: %s", std::generic_category().message(errno));
      return 1;
    }
    if (found < 0)
      return -1;
    count = batch.write(found, buffer, size);
    return found == 0 ? 1 : 0;
  }
};

} // namespace

BulkAttributes &BulkAttributes::real() {
  return lastingInstance<PlatformAttributes>();
}

} // namespace NS
