// Listings as only macOS has them, over the shim of its call.
#include "Foundation/Walking/FTS.h"

#include "Darwin/Shim.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

// The folder with many entries is closed during the walks in its deep ones, and
// opened again to list on.
TEST(FolderCalls, listOnWhereAVolumeGivesItsRecordsNoPositions) {
  constexpr int items = 4000;
  constexpr int levels = 20;
  kwtest::darwin::ShimScope shim;
  shim->recordPositions = false;
  kwtest::ScratchFolder scratch(kwtest::quickFolder());
  std::string deep;
  for (int level = 0; level < levels; ++level)
    deep += "/d";
  int expected = 2; // the root and the folder
  for (int index = 0; index < items; ++index) {
    std::string name = "wide/" + std::to_string(index);
    bool isDeep = index % 400 == 0;
    if (isDeep)
      std::filesystem::create_directories(scratch.path(name) + deep);
    else
      scratch.file(name, "");
    expected += isDeep ? levels + 1 : 1;
  }
  auto stream = NS::FTS::shared().open(scratch.path(), NS::FTSOption::PHYSICAL);
  int visits = 0;
  while (NS::FTSEntry *entry = visits <= expected ? stream->read() : nullptr)
    visits += entry->info == NS::FTSInfo::D || entry->info == NS::FTSInfo::F;
  EXPECT_EQ(visits, expected);
}

} // namespace
