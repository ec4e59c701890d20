// The record of copied items, in memory and beyond it.
#include "Foundation/Trees/POSIX/CopiedItems.h"

#include "Foundation/Trees/POSIX/ItemCopy.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>

namespace {

using kwtest::ScratchFolder;
using NS::CopiedItems;
using NS::ItemStatus;
using Likeness = NS::CopiedItems::Likeness;

ItemStatus file(ino_t inode) {
  ItemStatus status;
  status.mode = S_IFREG | 0644;
  status.device = 7;
  status.inode = inode;
  status.links = 1;
  status.size = 100;
  status.times[1] = {1000, 5};
  status.changed = {2000, 6};
  return status;
}

bool isUnchanged(const CopiedItems &copied, const ItemStatus &status) {
  return copied.contains(status, Likeness::Unchanged);
}

TEST(CopiedItems, tellEachItemByItsIdentitySizeAndTimeOfChange) {
  CopiedItems copied;
  ASSERT_EQ(copied.add(file(1)), 0);
  copied.finish();
  EXPECT_TRUE(isUnchanged(copied, file(1)));
  EXPECT_FALSE(isUnchanged(copied, file(2)));
  ItemStatus other = file(1);
  other.device = 8;
  EXPECT_FALSE(isUnchanged(copied, other));
  other = file(1);
  other.size = 101;
  EXPECT_FALSE(isUnchanged(copied, other));
  other = file(1);
  other.changed.tv_nsec = 7;
  EXPECT_FALSE(isUnchanged(copied, other));
}

TEST(CopiedItems, tellFoldersByTheirIdentityAlone) {
  CopiedItems copied;
  ItemStatus folder = file(1);
  folder.mode = S_IFDIR | 0755;
  ASSERT_EQ(copied.add(folder), 0);
  copied.finish();
  folder.changed.tv_sec = 3000;
  folder.size = 4096;
  EXPECT_TRUE(isUnchanged(copied, folder));
  EXPECT_FALSE(isUnchanged(copied, file(1)));
}

TEST(CopiedItems, acceptAnotherTimeOfChangeForFilesWithSeveralNamesAlone) {
  CopiedItems copied;
  ItemStatus linked = file(1);
  linked.links = 2;
  ASSERT_EQ(copied.add(linked), 0);
  ASSERT_EQ(copied.add(file(2)), 0);
  copied.finish();
  for (ino_t inode : {1u, 2u}) {
    ItemStatus later = file(inode);
    later.changed.tv_sec = 3000;
    EXPECT_FALSE(isUnchanged(copied, later));
    EXPECT_EQ(copied.contains(later, Likeness::SameContent), inode == 1);
    later.times[1].tv_sec = 3000;
    EXPECT_FALSE(copied.contains(later, Likeness::SameContent));
  }
}

TEST(CopiedItems, keepFingerprintsBeyondMemoryInAFileWithoutAName) {
  ScratchFolder scratch;
  NS::Descriptor folder(::open(scratch.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  CopiedItems copied(1000);
  copied.spillInto(folder.get());
  for (ino_t inode = 0; inode < 10'500; ++inode)
    ASSERT_EQ(copied.add(file(inode)), 0);
  copied.finish();
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
  for (ino_t inode = 0; inode < 10'500; ++inode)
    ASSERT_TRUE(isUnchanged(copied, file(inode))) << inode;
  for (ino_t inode = 10'500; inode < 21'000; ++inode)
    ASSERT_FALSE(isUnchanged(copied, file(inode))) << inode;
}

TEST(CopiedItems, sayWhenTheyHaveNoPlaceLeft) {
  CopiedItems copied(1);
  EXPECT_EQ(copied.add(file(1)), 0);
  EXPECT_NE(copied.add(file(2)), 0);
}

} // namespace
