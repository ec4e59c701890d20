// The order in which threads take the batches.
#include "Foundation/Walking/Internal/AheadList.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using NS::AheadBatch;
using NS::AheadList;

TEST(AheadList, givesTheFirstBatchThatNoThreadReads) {
  AheadList list;
  EXPECT_EQ(list.firstWaiting(), nullptr);
  AheadBatch first, second;
  list.insertAfter(nullptr, first);
  EXPECT_EQ(list.firstWaiting(), &first);
  list.insertAfter(&first, second);
  EXPECT_EQ(list.firstWaiting(), &first);
  list.take(first);
  EXPECT_EQ(list.firstWaiting(), &second);
  list.take(second);
  EXPECT_EQ(list.firstWaiting(), nullptr);
  list.putBack(second);
  EXPECT_EQ(list.firstWaiting(), &second);
}

TEST(AheadList, putsTheFoldersOfABatchIntoItsPlace) {
  AheadList list;
  AheadBatch batch, next;
  list.insertAfter(nullptr, batch);
  list.insertAfter(&batch, next);
  list.take(batch);
  batch.folders = std::make_unique<AheadBatch[]>(2);
  batch.folderCount = 2;
  list.replaceByFolders(batch);
  EXPECT_EQ(list.waiting(), 3u);
  for (AheadBatch *expected : {&batch.folders[0], &batch.folders[1], &next}) {
    EXPECT_EQ(list.firstWaiting(), expected);
    list.remove(*expected);
  }
  EXPECT_EQ(list.head(), nullptr);
}

} // namespace
