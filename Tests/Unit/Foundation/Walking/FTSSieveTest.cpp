// Walks with a sieve, against the same walks without one: they return the items
// that pass the sieve, and add up the others.
#include "Foundation/Base/Progress.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Walking/FTS.h"

#include "Support/Allocations.h"
#include "Support/FakeProcessors.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using kwtest::FakeProcessors;
using kwtest::inForkedChild;
using kwtest::quickFolder;
using kwtest::RandomTree;
using kwtest::ScratchFolder;
using NS::DescriptorBudget;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;
constexpr int withoutStat = physical | NS::FTSOption::NOSTAT;

// Two names of three are held back.
bool isLetThrough(std::string_view name) {
  return std::hash<std::string_view>{}(name) % 3 == 0;
}

bool isLeaf(NS::FTSInfo info) {
  return info == NS::FTSInfo::F || info == NS::FTSInfo::SL || info == NS::FTSInfo::DEFAULT ||
         info == NS::FTSInfo::NSOK;
}

std::int64_t numberOf(std::string_view name, const NS::FTSStat &status) {
  return static_cast<std::int64_t>(name.size()) + status.size;
}

class OneOfThree : public NS::FTSSieve {
public:
  bool returns(const char *name, NS::FTSInfo info, const NS::FTSStat &status,
               std::int64_t &number) const noexcept override {
    number = numberOf(name, status);
    areLeaves = areLeaves && isLeaf(info);
    ++asked;
    return isLetThrough(name);
  }
  mutable std::atomic<bool> areLeaves{true}; // all items that the walk showed
  mutable std::atomic<int> asked{0};
};

std::string line(const NS::FTSEntry &entry, std::int64_t number) {
  return std::to_string(static_cast<int>(entry.info)) + " " + std::string(entry.path) + " " +
         std::to_string(number) + "\n";
}

std::string counted(NS::Progress &progress) {
  NS::Progress::Snapshot snapshot = progress.snapshot();
  return std::to_string(snapshot.items) + " items, " + std::to_string(snapshot.bytes) + " bytes\n";
}

// Each entry that a sieve lets through, with the sum of those held back in a
// folder at its second visit.
std::string sieved(const std::string &root, int options, unsigned processors,
                   const OneOfThree &sieve) {
  FakeProcessors fake(processors);
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  auto stream = NS::FTS::shared().openForAll(root, options, &sieve);
  std::string text;
  while (NS::FTSEntry *entry = stream->read())
    text += line(*entry, entry->info == NS::FTSInfo::D ? 0 : entry->number);
  return text + counted(progress) + (sieve.areLeaves ? "" : "a folder in the sieve\n");
}

std::string sieved(const std::string &root, int options, unsigned processors) {
  return sieved(root, options, processors, OneOfThree());
}

// The same from a walk that returns everything.
std::string expected(const std::string &root, int options) {
  FakeProcessors alone(1);
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  auto stream = NS::FTS::shared().openForAll(root, options);
  std::string text;
  while (NS::FTSEntry *entry = stream->read())
    if (isLeaf(entry->info) && entry->level > 0 && !isLetThrough(entry->name))
      entry->parent->number += numberOf(entry->name, entry->statp);
    else
      text += line(*entry, entry->info == NS::FTSInfo::D ? 0 : entry->number);
  return text + counted(progress);
}

// Names beyond one batch.
void makeManyFiles(const std::string &path) {
  std::string filler(200, 'x');
  for (int index = 0; index < 3000; ++index)
    std::ofstream(path + "/" + std::to_string(index) + filler) << "content";
}

// A walk that threw folders away that were read ahead, the root among them, would
// read them again.
TEST(FTSSieve, isAskedOnceAboutEachItem) {
  constexpr int folders = 40, files = 10;
  ScratchFolder scratch(quickFolder());
  std::vector<std::string> paths{scratch.path()};
  for (int folder = 1; folder < folders; ++folder)
    paths.push_back(scratch.path(std::to_string(folder % 4)) + "/" + std::to_string(folder));
  for (const std::string &path : paths) {
    std::filesystem::create_directories(path);
    for (int file = 0; file < files; ++file)
      std::ofstream(path + "/file " + std::to_string(file)) << "content";
  }
  for (unsigned processors : {1u, 2u, 4u}) {
    OneOfThree sieve;
    sieved(scratch.path(), physical, processors, sieve);
    EXPECT_EQ(sieve.asked, folders * files) << processors;
  }
}

class EverythingPasses final : public NS::FTSSieve {
public:
  bool returns(const char * /*name*/, NS::FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    ++asked;
    return true;
  }
  mutable std::atomic<int> asked{0};
};

// How many items of a folder of ten the walk has looked at when it returns the first.
int lookedAtForTheFirst(const std::string &folder, unsigned processors) {
  FakeProcessors fake(processors);
  EverythingPasses sieve;
  auto stream = NS::FTS::shared().openForAll(folder, physical, &sieve);
  stream->read();
  stream->read();
  return sieve.asked;
}

TEST(FTSSieve, isAskedAheadOfTheWalkWhereProcessorsAndDescriptorsAreToSpare) {
  ScratchFolder scratch;
  for (int file = 0; file < 10; ++file)
    scratch.file(std::to_string(file), "");
  EXPECT_EQ(lookedAtForTheFirst(scratch.path(), 1), 1);
  EXPECT_EQ(lookedAtForTheFirst(scratch.path(), 2), 10);
  std::vector<DescriptorBudget::Share> others = kwtest::takeAllSpare();
  EXPECT_EQ(lookedAtForTheFirst(scratch.path(), 2), 1);
}

void makeLargeFolder(const std::string &path) {
  makeManyFiles(path);
  std::filesystem::create_directories(path + "/folder/inner");
}

TEST(FTSSieve, holdsBackTheSameItemsOnAnyTreeAloneAndByThreads) {
  for (std::uint32_t seed = 1; seed <= 300; ++seed) {
    ScratchFolder scratch(quickFolder());
    RandomTree tree(scratch.path(), seed, 40);
    int options = seed % 2 == 0 ? physical : withoutStat;
    std::string text = expected(scratch.path(), options);
    for (unsigned processors : {1u, 4u})
      ASSERT_EQ(sieved(scratch.path(), options, processors), text) << seed << ' ' << processors;
  }
}

TEST(FTSSieve, holdsBackItemsOfLargeFolders) {
  ScratchFolder scratch(quickFolder());
  makeLargeFolder(scratch.path());
  for (int options : {physical, withoutStat})
    for (unsigned processors : {1u, 4u})
      EXPECT_EQ(sieved(scratch.path(), options, processors), expected(scratch.path(), options));
}

class NothingPasses final : public NS::FTSSieve {
public:
  bool returns(const char * /*name*/, NS::FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    return false;
  }
};

TEST(FTSSieve, returnsTheRootEvenIfItIsAFile) {
  ScratchFolder scratch;
  NothingPasses sieve;
  auto stream = NS::FTS::shared().openForAll(scratch.file("file", "x"), physical, &sieve);
  NS::FTSEntry *entry = stream->read();
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->info, NS::FTSInfo::F);
}

TEST(FTSSieve, addsNothingForItemsToWhichItGivesNoNumber) {
  ScratchFolder scratch;
  for (const char *name : {"one", "two"})
    scratch.file(name, "content");
  NothingPasses sieve;
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical, &sieve);
  ASSERT_NE(stream->read(), nullptr);
  NS::FTSEntry *folder = stream->read();
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->info, NS::FTSInfo::DP);
  EXPECT_EQ(folder->number, 0);
}

// Takes all descriptors but one when it has seen so many items.
class Hoarder final : public OneOfThree {
public:
  explicit Hoarder(int patience) : patience_(patience) {}
  bool returns(const char *name, NS::FTSInfo info, const NS::FTSStat &status,
               std::int64_t &number) const noexcept override {
    if (++items_ == patience_) {
      int last = -1;
      for (int taken = 0; taken >= 0; taken = ::dup(0))
        last = taken;
      ::close(last);
    }
    return OneOfThree::returns(name, info, status, number);
  }

private:
  int patience_;
  mutable std::atomic<int> items_{0};
};

// Files and folders, too many for one batch.
void makeManyItems(const ScratchFolder &scratch) {
  std::string filler(200, 'x');
  for (int index = 0; index < 4000; ++index) {
    std::string path = scratch.path(std::to_string(index) + filler);
    if (index % 20 == 0)
      std::filesystem::create_directory(path);
    std::ofstream(index % 20 == 0 ? path + "/file" : path) << "content";
  }
}

// The threads that read ahead give up within the large folder; the walk goes on
// after the items of it that the sieve has seen already.
TEST(FTSSieve, goesOnAloneAfterTheItemsThatWereHeldBack) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch(quickFolder());
  makeManyItems(scratch);
  std::string text = expected(scratch.path(), physical);
  for (int patience = 100; patience < 2000; patience += 200)
    EXPECT_EQ(inForkedChild([&]() -> std::string {
                kwtest::limitDescriptors(600);
                if (!DescriptorBudget::ofWalks().takeSpare(1 + DescriptorBudget::sharesForHelpers))
                  return "too few to read ahead";
                Hoarder sieve(patience);
                return sieved(scratch.path(), physical, 4, sieve) == text ? "" : "another result";
              }),
              "")
        << patience;
}

// Leaves each thread but its own without memory after so many allocations.
class Starver final : public OneOfThree {
public:
  explicit Starver(int allocations) : allocations_(allocations) {}
  bool returns(const char *name, NS::FTSInfo info, const NS::FTSStat &status,
               std::int64_t &number) const noexcept override {
    if (std::this_thread::get_id() != own_)
      kwtest::allocationsLeft() = allocations_;
    return OneOfThree::returns(name, info, status, number);
  }

private:
  const int allocations_;
  const std::thread::id own_ = std::this_thread::get_id();
};

TEST(FTSSieve, goesOnAloneWhenTheThreadsThatReadAheadLackMemory) {
  ScratchFolder scratch(quickFolder());
  makeManyItems(scratch);
  std::string text = expected(scratch.path(), physical);
  for (int allocations = 0; allocations < 8; ++allocations)
    EXPECT_EQ(sieved(scratch.path(), physical, 4, Starver(allocations)), text) << allocations;
}

// Cancels its request at the tenth item.
class Canceller final : public NS::FTSSieve {
public:
  bool returns(const char * /*name*/, NS::FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    if (++items == 10)
      NS::Progress::current().cancel();
    return false;
  }
  mutable int items = 0;
};

TEST(FTSSieve, letsTheRequesterSeeAndEndAWalkWhoseItemsAreHeldBack) {
  ScratchFolder scratch(quickFolder());
  makeManyFiles(scratch.path());
  FakeProcessors alone(1);
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  Canceller sieve;
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical, &sieve);
  ASSERT_NE(stream->read(), nullptr);
  progress.setPath("elsewhere");
  static_cast<void>(progress.snapshot()); // asks for a path
  EXPECT_EQ(stream->read(), nullptr);
  EXPECT_EQ(progress.snapshot().path, scratch.path());
  EXPECT_EQ(stream->failure(), ECANCELED);
  EXPECT_EQ(sieve.items, 10);
}

} // namespace
