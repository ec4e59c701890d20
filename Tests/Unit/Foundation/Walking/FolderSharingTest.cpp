// Folders that a walk shares out, by the functions that a removal and a copy call.
#include "Foundation/Walking/POSIX/FolderSharing.h"

#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/Signal.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using kwtest::ScratchFolder;
using NS::DescriptorBudget;
using NS::FolderSharing;
using NS::HelperPlace;
using NS::SharedFolder;
using NS::TreeFailure;
using NS::TreeItem;
using NS::TreeResult;
using NS::TreeStep;

// The levels whose folders are shared out.
constexpr std::size_t levels = 8;

NS::FolderIdentity identityOf(int folder) {
  NS::FolderIdentity identity;
  EXPECT_EQ(NS::foldercalls::identify(folder, identity), 0);
  return identity;
}

// The chain from a folder to the walk's place beneath it.
class Place : public NS::FolderChain {
public:
  explicit Place(const std::string &root) : FolderChain({}) {
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_TRUE(openRoot(NS::Descriptor(folder)).isDone());
  }
};

// A walk, and one thread that helps it.
class Walk {
public:
  explicit Walk(const std::string &root) : root_(root), place_(root) {}

  void enter(const std::string &name) { EXPECT_TRUE(place_.enter(name.c_str()).isDone()); }
  void leave() { EXPECT_TRUE(place_.leave().isDone()); }
  bool offer(const FolderSharing::FolderWork &work, const Place *copy = nullptr) {
    return sharing_.share(place_, copy, root_, work);
  }
  // Offers folders until one is taken, which the first few are not.
  bool share(const FolderSharing::FolderWork &work, const Place *copy = nullptr) {
    for (int attempt = 0; attempt < 10; ++attempt)
      if (offer(work, copy))
        return true;
    return false;
  }
  void finish() { sharing_.finish(place_.depth()); }
  FolderSharing &sharing() { return sharing_; }
  int folder() const { return place_.folder(); }

private:
  kwtest::FakeProcessors processors_{2, 2};
  std::string root_;
  Place place_;
  FolderSharing sharing_;
};

TreeResult nothing(const SharedFolder & /*above*/, HelperPlace & /*place*/) {
  return {};
}

TreeFailure failure(int errnum, const std::string &path = "") {
  return {{TreeStep::Open, errnum}, TreeItem::Asked, path};
}

// Work on folders that holds the helper up until the walk does some too.
class SharedBurden {
public:
  TreeResult work(bool isHelpers) {
    if (isHelpers)
      freed_.wait();
    else
      free();
    ++finished_;
    return {};
  }
  void free() {
    if (!isFree_.exchange(true))
      freed_.raise();
  }
  int finished() const { return finished_; }

private:
  std::atomic<int> finished_{0};
  std::atomic<bool> isFree_{false};
  kwtest::Signal freed_;
};

TEST(FolderSharing, endsAFolderWhenTheWorkOnAllSharedOutOfItHasEnded) {
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("d/d/d/d/d/d/d/d"));
  Walk walk(scratch.path());
  for (std::size_t level = 0; level < levels; ++level) {
    auto burden = std::make_shared<SharedBurden>();
    auto work = [burden, own = std::this_thread::get_id()](const SharedFolder &, HelperPlace &) {
      return burden->work(std::this_thread::get_id() != own);
    };
    for (int folder = 0; folder < 3; ++folder)
      EXPECT_TRUE(walk.share(work));
    walk.finish();
    EXPECT_EQ(burden->finished(), 3) << level;
    burden->free();
    walk.enter("d");
  }
  EXPECT_FALSE(walk.share(nothing)) << "too far down";
}

TEST(FolderSharing, worksInTheFolderWhereTheWalkIs) {
  ScratchFolder scratch, copies;
  for (const std::string name : {"first", "second"}) {
    std::filesystem::create_directory(scratch.path(name));
    std::filesystem::create_directory(copies.path(name));
  }
  Walk walk(scratch.path());
  Place copy(copies.path());
  for (const std::string name : {"first", "second"}) {
    walk.enter(name);
    EXPECT_TRUE(copy.enter(name.c_str()).isDone());
    bool isCalled = false;
    EXPECT_TRUE(walk.share(
        [&](const SharedFolder &above, HelperPlace &) {
          EXPECT_EQ(above.path, scratch.path(name));
          EXPECT_TRUE(identityOf(above.original.get()).matches(identityOf(walk.folder())));
          EXPECT_TRUE(identityOf(above.copy.get()).matches(identityOf(copy.folder())));
          isCalled = true;
          return TreeResult();
        },
        &copy));
    walk.finish();
    EXPECT_TRUE(isCalled);
    walk.leave();
    EXPECT_TRUE(copy.leave().isDone());
  }
}

// Tells where a walk fails whose process has no descriptor for a shared folder, or
// none for that of its copy alone.
std::string shareWithoutDescriptor(const std::string &root, bool hasCopy) {
  return kwtest::inForkedChild([&]() -> std::string {
    Walk walk(root);
    Place copy(root);
    const Place *second = hasCopy ? &copy : nullptr;
    if (!walk.share(nothing, second))
      return "no folder was shared";
    walk.finish();
    walk.enter("d");
    if (!copy.enter("d").isDone())
      return "no folder in the copy";
    int lacking = hasCopy ? copy.folder() : walk.folder();
    if (!kwtest::answerCalls({SYS_fcntl}, [=](const kwtest::CallArguments &call) {
          bool lacks = static_cast<int>(call[0]) == lacking && call[1] == F_DUPFD_CLOEXEC;
          return lacks ? std::optional(-static_cast<long>(EMFILE)) : std::nullopt;
        }))
      return "no calls to answer";
    return walk.share(nothing, second) ? "shared" : "";
  });
}

TEST(FolderSharing, leavesFoldersToTheWalkThatItHasNoDescriptorFor) {
  ScratchFolder scratch;
  std::filesystem::create_directory(scratch.path("d"));
  for (bool hasCopy : {false, true})
    EXPECT_EQ(shareWithoutDescriptor(scratch.path(), hasCopy), "") << hasCopy;
}

// There are just as many to spare as it needs.
TEST(FolderSharing, keepsDescriptorsForItsThreadsUntilItsEnd) {
  DescriptorBudget &walks = DescriptorBudget::ofWalks();
  std::vector<DescriptorBudget::Share> others = kwtest::takeAllSpare();
  ASSERT_GE(others.size(), DescriptorBudget::sharesForHelpers);
  others.resize(others.size() - DescriptorBudget::sharesForHelpers);
  std::size_t before = walks.inUse();
  ScratchFolder scratch;
  {
    Walk walk(scratch.path());
    EXPECT_TRUE(walk.share(nothing));
    for (int folder = 0; folder < 3; ++folder) {
      EXPECT_EQ(walks.inUse(), before + DescriptorBudget::sharesForHelpers);
      walk.offer(nothing);
    }
  }
  EXPECT_EQ(walks.inUse(), before);
}

TEST(FolderSharing, leavesFoldersToTheWalkWhereNoDescriptorsAreToSpare) {
  std::vector<DescriptorBudget::Share> others = kwtest::takeAllSpare();
  ScratchFolder scratch;
  Walk walk(scratch.path());
  EXPECT_FALSE(walk.share(nothing));
  walk.finish();
}

TEST(FolderSharing, takesAFailureInASharedFolderForOneBeneathTheItem) {
  ScratchFolder scratch;
  Walk walk(scratch.path());
  EXPECT_TRUE(walk.share([](const SharedFolder &, HelperPlace &) { return failure(EIO, "d"); }));
  walk.finish();
  EXPECT_TRUE(walk.sharing().isFailed());
  TreeResult result = walk.sharing().result();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome.errnum(), EIO);
  EXPECT_EQ(result->item, TreeItem::Inner);
  EXPECT_EQ(result->path, "d");
}

TEST(FolderSharing, doesNotFailWhereASharedFolderIsGone) {
  ScratchFolder scratch;
  Walk walk(scratch.path());
  EXPECT_TRUE(walk.share([](const SharedFolder &, HelperPlace &) { return failure(ENOENT); }));
  walk.finish();
  EXPECT_FALSE(walk.sharing().isFailed());
  EXPECT_FALSE(walk.sharing().result());
}

TEST(FolderSharing, failsWhereTheWorkOnASharedFolderLacksMemory) {
  ScratchFolder scratch;
  Walk walk(scratch.path());
  EXPECT_TRUE(walk.share(
      [](const SharedFolder &, HelperPlace &) -> TreeResult { throw std::bad_alloc(); }));
  walk.finish();
  EXPECT_TRUE(walk.sharing().isFailed());
  TreeResult result = walk.sharing().result();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome.errnum(), ENOMEM);
}

TEST(FolderSharing, keepsTheFirstFailureAndWorksOnNothingAfterIt) {
  ScratchFolder scratch;
  Walk walk(scratch.path());
  walk.sharing().fail(failure(EIO, "first"));
  walk.sharing().fail(failure(EACCES, "second"));
  bool isCalled = false;
  EXPECT_TRUE(walk.share([&](const SharedFolder &, HelperPlace &) {
    isCalled = true;
    return TreeResult();
  }));
  walk.finish();
  EXPECT_FALSE(isCalled);
  TreeResult result = walk.sharing().result();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->path, "first");
}

} // namespace
