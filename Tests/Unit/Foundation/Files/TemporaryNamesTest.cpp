// The names of items under construction, and the locks on them.
#include "Foundation/Files/POSIX/TemporaryNames.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include "Support/ForkedChild.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <unistd.h>

namespace {

using NS::Descriptor;

TEST(TemporaryName, isNumberedForTheFirstSlotsAndRandomForLaterOnes) {
  EXPECT_EQ(NS::temporaryName(".new-", 0), ".new-00");
  EXPECT_EQ(NS::temporaryName(".new-", NS::temporarySlots - 1), ".new-15");
  std::set<std::string> names;
  for (int count = 0; count < 10; ++count)
    names.insert(NS::temporaryName(".new-", NS::temporarySlots));
  EXPECT_EQ(names.size(), 10u);
  for (const std::string &name : names)
    EXPECT_EQ(name.size(), std::string_view(".new-").size() + 16) << name;
}

class TakeOver : public testing::Test {
protected:
  int take(const Descriptor &item, const char *name = "item", uid_t owner = ::geteuid()) const {
    return NS::takeOver(folder_.get(), name, item.get(), owner);
  }
  Descriptor opened() const { return Descriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC)); }

  kwtest::ScratchFolder scratch_;
  std::string path_ = scratch_.file("item", "");
  Descriptor folder_{::open(scratch_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(TakeOver, locksTheItemUntilItIsClosed) {
  Descriptor maker = opened(), finder = opened();
  EXPECT_EQ(take(maker), 0);
  EXPECT_EQ(take(finder), EWOULDBLOCK);
  maker.reset();
  EXPECT_EQ(take(finder), 0);
}

TEST_F(TakeOver, isStaleWhenTheNameMeansAnotherItemOrNone) {
  Descriptor item = opened();
  std::filesystem::rename(path_, scratch_.path("moved"));
  EXPECT_EQ(take(item), ESTALE);
  scratch_.file("item", "another");
  EXPECT_EQ(take(item), ESTALE);
  EXPECT_EQ(take(item, "moved"), 0);
  EXPECT_EQ(take(item, std::string(300, 'x').c_str()), ENAMETOOLONG);
}

TEST_F(TakeOver, isOnlyForItemsOfThisUserAndOfTheGivenOwner) {
  KW_REQUIRE_ROOT();
  Descriptor item = opened();
  EXPECT_EQ(take(item, "item", 1234), 0);
  ASSERT_EQ(::chown(path_.c_str(), 1234, 1234), 0);
  EXPECT_EQ(take(item, "item", 1234), 0);
  EXPECT_EQ(take(item, "item", 4321), ESTALE);
}

// The roots of two volumes of one kind have one number.
TEST_F(TakeOver, isStaleWhenTheNameMeansAnItemOfAnotherVolume) {
  KW_REQUIRE_ROOT();
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              const std::string &path = scratch_.path();
              if (!kwtest::mountMemory(path))
                return "no volume";
              Descriptor hidden(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
              if (int error = NS::takeOver(AT_FDCWD, path, hidden.get(), ::geteuid()))
                return "error " + std::to_string(error);
              if (!kwtest::mountMemory(path))
                return "no other volume";
              return std::to_string(NS::takeOver(AT_FDCWD, path, hidden.get(), ::geteuid()));
            }),
            std::to_string(ESTALE));
}

} // namespace
