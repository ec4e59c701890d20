// Walks on volumes that list their folders otherwise than a disk does, or fail at
// it, alone and with threads that read ahead.
#include "Foundation/Walking/FTS.h"

#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/Listings.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace {

using kwtest::inForkedChild;
using kwtest::ours;
using kwtest::quickFolder;
using kwtest::ScratchFolder;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;

std::string ahead(const std::string &root) {
  kwtest::FakeProcessors processors(4);
  return kwtest::sequence(*NS::FTS::shared().openForAll(root, physical), physical);
}

// Files and folders, of which not all fit into one piece of a listing.
void makeFolders(const ScratchFolder &scratch) {
  for (int index = 0; index < 50; ++index) {
    std::filesystem::create_directory(scratch.path(std::to_string(index)));
    scratch.file(std::to_string(index) + "/file", "content");
  }
}

TEST(FTSListings, ofAFewEntriesAtATimeGiveEachOnce) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  std::string expected = ours(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              if (!kwtest::listInPieces())
                return "no pieces";
              if (ours(scratch.path(), physical) != expected)
                return "another sequence";
              return ahead(scratch.path()) == expected ? "" : "another sequence ahead";
            }),
            "");
}

TEST(FTSListings, withoutTypesGiveTheSameSequence) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  scratch.file("file", "content");
  std::string expected = ours(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              if (!kwtest::listWithoutTypes())
                return "types";
              if (ours(scratch.path(), physical) != expected)
                return "another sequence";
              return ahead(scratch.path()) == expected ? "" : "another sequence ahead";
            }),
            "");
}

// The walk returns the items that were listed before.
TEST(FTSListings, giveERRForAFolderThatFails) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              if (!kwtest::failListingsAfterFirst(512, EIO))
                return "no failure";
              std::string expected = ours(scratch.path(), physical);
              std::string end = "7 0 " + scratch.path();
              if (expected.find(end) == std::string::npos)
                return "no error: " + expected;
              return ahead(scratch.path()) == expected ? "" : "another sequence ahead";
            }),
            "");
}

} // namespace
