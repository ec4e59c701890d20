// The platform's removefile: its arguments, its callbacks and its errors, over
// the shim, which removes nothing.
#include "Foundation/Trees/SecureRemoval.h"

#include "Darwin/RemovalShim.h"
#include "Foundation/Base/Progress.h"
#include "Support/ScratchFolder.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using Call = kwtest::darwin::Removals::Call;
using Calls = std::vector<Call>;

constexpr std::uint32_t recursiveOnePass = 17;

class SecureRemoval : public ::testing::Test {
protected:
  ~SecureRemoval() override { EXPECT_EQ(shim->states, 0) << "every state is freed once"; }

  kwtest::darwin::RemovalScope shim;
  NS::Progress progress;

  // 0, or the errno value.
  int remove(const std::string &path) {
    NS::Progress::Scope scope(progress);
    errno = 0;
    return NS::SecureRemoval::shared().removefile(path, recursiveOnePass) == 0 ? 0 : errno;
  }
};

TEST_F(SecureRemoval, asksForTheWholeItemInOnePass) {
  EXPECT_EQ(remove("/item"), 0);
  EXPECT_EQ(shim->calls, Calls({{"/item", recursiveOnePass}}));
}

TEST_F(SecureRemoval, passesThePlatformsErrorOn) {
  shim->error = EPERM;
  EXPECT_EQ(remove("/item"), EPERM);
}

TEST_F(SecureRemoval, takesALinkWithASlashForTheLink) {
  EXPECT_EQ(remove("/folder/link//"), 0);
  EXPECT_EQ(shim->calls, Calls({{"/folder/link", recursiveOnePass}}));
}

TEST_F(SecureRemoval, neverAsksForItemsThatNoRemovalMayTake) {
  const struct {
    std::string path;
    int error;
  } cases[] = {{"", ENOENT},   {"/", EBUSY},          {"///", EBUSY},     {".", EINVAL},
               {"..", EINVAL}, {"/folder/.", EINVAL}, {"a/..//", EINVAL}, {{"/x\0y", 4}, EINVAL}};
  for (const auto &[path, error] : cases)
    EXPECT_EQ(remove(path), error) << path;
  EXPECT_TRUE(shim->calls.empty());
}

TEST_F(SecureRemoval, takesNamesThatOnlyBeginWithADot) {
  for (const char *name : {".hidden", "...", "..x", "x."})
    EXPECT_EQ(remove(name), 0) << name;
}

TEST_F(SecureRemoval, countsItemsAndTheBytesOfFiles) {
  kwtest::ScratchFolder folder;
  shim->items = {folder.file("a", "12345"), folder.path("missing"), folder.path()};
  std::filesystem::create_symlink("a", folder.path("link"));
  shim->items.push_back(folder.path("link"));
  EXPECT_EQ(remove("/item"), 0);
  EXPECT_EQ(progress.snapshot().items, 4u);
  EXPECT_EQ(progress.snapshot().bytes, 5u);
}

TEST_F(SecureRemoval, countsTheBytesOfTheLastFileInAFolderOnce) {
  kwtest::ScratchFolder folder;
  shim->folders = {folder.path()};
  shim->items = {folder.file("a", "123"), folder.file("b", "45")};
  EXPECT_EQ(remove("/item"), 0);
  EXPECT_EQ(shim->removed.back(), folder.path());
  EXPECT_EQ(progress.snapshot().items, 3u);
  EXPECT_EQ(progress.snapshot().bytes, 5u);
}

TEST_F(SecureRemoval, tellsItsPlaceToThoseThatAsk) {
  shim->items = {"/item/first", "/item/second"};
  EXPECT_EQ(progress.snapshot().path, "");
  EXPECT_EQ(remove("/item"), 0);
  EXPECT_EQ(progress.snapshot().path, "/item/first") << "it was asked once";
}

TEST_F(SecureRemoval, stopsBeforeTheNextItemOnceCancelled) {
  for (int errorOfStop : {0, ECANCELED, EINTR}) {
    SCOPED_TRACE(errorOfStop);
    NS::Progress cancelled;
    NS::Progress::Scope scope(cancelled);
    *shim.operator->() = {};
    shim->errorOfStop = errorOfStop;
    shim->items = {"/item/1", "/item/2", "/item"};
    shim->beforeRemoval = [&](const std::string &item) {
      if (item == "/item/2")
        cancelled.cancel();
    };
    EXPECT_EQ(NS::SecureRemoval::shared().removefile("/item", recursiveOnePass), -1);
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_EQ(shim->removed, (std::vector<std::string>{"/item/1", "/item/2"}));
    EXPECT_EQ(cancelled.snapshot().items, 2u);
  }
}

TEST_F(SecureRemoval, isDoneWhenItIsCancelledAfterItsLastItem) {
  shim->items = {"/item"};
  shim->beforeRemoval = [&](const std::string &) { progress.cancel(); };
  EXPECT_EQ(remove("/item"), 0);
}

TEST_F(SecureRemoval, asksForNothingThatItCouldNotStop) {
  shim->hasMemory = false;
  EXPECT_EQ(remove("/item"), ENOMEM);
  shim->hasMemory = true;
  for (int key : {1, 2, 6, 7}) {
    shim->refusedKey = key;
    EXPECT_EQ(remove("/item"), EINVAL) << key;
  }
  EXPECT_TRUE(shim->calls.empty());
}

} // namespace
