// Walks on volumes that list their folders otherwise than a disk does, or that fail,
// alone and with threads that read ahead.
#include "Foundation/Walking/FTS.h"

#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/Listings.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>

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

// Tells whether walks give another sequence after the volume lists in another way.
std::string differenceAfter(const std::function<bool()> &change) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  scratch.file("file", "content");
  std::string expected = ours(scratch.path(), physical);
  return inForkedChild([&]() -> std::string {
    if (!change())
      return "no change";
    if (ours(scratch.path(), physical) != expected)
      return "another sequence";
    return ahead(scratch.path()) == expected ? "" : "another sequence ahead";
  });
}

TEST(FTSListings, ofAFewEntriesAtATimeGiveEachOnce) {
  EXPECT_EQ(differenceAfter([] { return kwtest::listInPieces(); }), "");
}

TEST(FTSListings, withoutTypesGiveTheSameSequence) {
  EXPECT_EQ(differenceAfter([] { return kwtest::listWithoutTypes(); }), "");
}

// Tells whether walks lack the entry with the error after the volume fails, or differ.
std::string differenceFrom(const ScratchFolder &scratch, const std::string &entry,
                           const std::function<bool()> &fail) {
  return inForkedChild([&]() -> std::string {
    if (!fail())
      return "no failure";
    std::string expected = ours(scratch.path(), physical);
    if (expected.find(entry) == std::string::npos)
      return "no error: " + expected;
    return ahead(scratch.path()) == expected ? "" : "another sequence ahead";
  });
}

// The walk returns the items that were listed before.
TEST(FTSListings, giveERRForAFolderThatFails) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  EXPECT_EQ(differenceFrom(scratch, "7 0 " + scratch.path(),
                           [] { return kwtest::failListingsAfterFirst(512, EIO); }),
            "");
}

// Files and folders whose names fill several of the pieces that are read ahead. Gives
// the inode of the folder.
ino_t makeLargeFolder(const std::string &path) {
  std::string filler(230, 'x');
  for (int index = 0; index < 1000; ++index) {
    std::string item = path + "/" + std::to_string(index) + filler;
    if (index % 10 == 0)
      std::filesystem::create_directories(item + "/inner");
    else
      std::ofstream(item) << "content";
  }
  struct stat status;
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_ino;
}

constexpr std::size_t piece = 16 * 1024;
constexpr int pieces = 16;

// The walk goes on alone then, from where the threads that read ahead have ended.
TEST(FTSListings, thatLackMemoryForAMomentGiveEachEntryOnce) {
  ScratchFolder scratch(quickFolder());
  ino_t large = makeLargeFolder(scratch.path("large"));
  for (const std::string &root : {scratch.path(), scratch.path("large")}) {
    std::string expected = ours(root, physical);
    for (int number = 0; number < pieces; ++number)
      EXPECT_EQ(inForkedChild([&]() -> std::string {
                  if (!kwtest::lackMemoryAtListing(number, large, piece, [] {}))
                    return "no listings to answer";
                  return ahead(root) == expected ? "" : "another sequence";
                }),
                "")
          << root << ' ' << number;
  }
}

TEST(FTSListings, giveERRForAFolderThatIsGoneWhenTheyLackMemory) {
  ScratchFolder scratch(quickFolder());
  ino_t large = makeLargeFolder(scratch.path("large"));
  // Four pieces are read ahead at once.
  for (int number : {4, 5, 12})
    EXPECT_EQ(inForkedChild([&]() -> std::string {
                std::string path = scratch.path("large");
                if (!kwtest::lackMemoryAtListing(number, large, piece, [&] {
                      std::filesystem::rename(path, scratch.path("elsewhere"));
                    }))
                  return "no listings to answer";
                std::string given = ahead(scratch.path());
                std::filesystem::rename(scratch.path("elsewhere"), path);
                std::string end = "7 1 " + path + " large " + std::to_string(ENOENT) + " ";
                return given.find(end) != std::string::npos ? "" : "no error";
              }),
              "")
        << number;
}

// It can still be opened and listed.
TEST(FTSListings, giveNSForAFolderWhoseStatusCannotBeRead) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch);
  for (int index = 0; index < 50; ++index)
    std::filesystem::create_directories(scratch.path("20/sick/" + std::to_string(index) + "/x/y"));
  EXPECT_EQ(differenceFrom(scratch, "10 2 " + scratch.path("20/sick") + " sick 5 ",
                           [] { return kwtest::failStatusOf("sick", EIO); }),
            "");
}

} // namespace
