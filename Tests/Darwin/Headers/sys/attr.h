// Attribute lists and the fixed parts of their records.
#pragma once

#include <cstddef>
#include <cstdint>

#define ATTR_BIT_MAP_COUNT 5
#define ATTR_CMN_NAME 0x00000001u
#define ATTR_CMN_OBJTYPE 0x00000008u
#define ATTR_CMN_ERROR 0x20000000u
#define ATTR_CMN_RETURNED_ATTRS 0x80000000u
#define ATTR_FILE_TOTALSIZE 0x00000002u
#define ATTR_FILE_IOBLOCKSIZE 0x00000008u
#define FSOPT_NOFOLLOW 0x00000001u
#define FSOPT_PACK_INVAL_ATTRS 0x00000008u

struct attrlist {
  std::uint16_t bitmapcount;
  std::uint16_t reserved;
  std::uint32_t commonattr;
  std::uint32_t volattr;
  std::uint32_t dirattr;
  std::uint32_t fileattr;
  std::uint32_t forkattr;
};
typedef struct {
  std::uint32_t commonattr;
  std::uint32_t volattr;
  std::uint32_t dirattr;
  std::uint32_t fileattr;
  std::uint32_t forkattr;
} attribute_set_t;
typedef struct {
  std::int32_t attr_dataoffset;
  std::uint32_t attr_length;
} attrreference_t;

extern "C" {
int getattrlist(const char *path, void *list, void *buffer, std::size_t size, unsigned options);
int getattrlistbulk(int folder, void *list, void *buffer, std::size_t size, std::uint64_t options);
}
