// The removal of a tree in which another process makes, moves and exchanges
// items at a certain moment.
#include "Foundation/Trees/Internal/TreeRemoval.h"

#include "Foundation/Trees/FileManager.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::StepOutcome;
using NS::TreeResult;
using NS::TreeStep;

// Removes "root", which holds "root/sub". Another process does something just
// before each call that removes or opens one of the two folders. Returns the
// failure, or an empty text.
std::string
removeWhile(const ScratchFolder &scratch,
            const std::function<void(const std::string &name, bool isRemoval)> &beforeFolder) {
  fs::create_directories(scratch.path("root/sub"));
  return kwtest::inForkedChild([&]() -> std::string {
    if (!kwtest::beforeCalls({SYS_unlinkat, SYS_openat}, [&](const kwtest::CallArguments &call) {
          bool isRemoval = call.isOf(SYS_unlinkat);
          if (std::string name = call.text(1); name == "root" || name == "sub")
            if (call[2] & (isRemoval ? AT_REMOVEDIR : O_DIRECTORY))
              beforeFolder(name, isRemoval);
        }))
      return "the calls cannot be watched";
    std::optional<NS::Error> error;
    return NS::FileManager::defaultManager().removeItemAtPath(scratch.path("root"), &error)
               ? ""
               : error->description();
  });
}

// The path of a folder of removeWhile.
std::string pathOf(const std::string &name) {
  return name == "root" ? name : "root/" + name;
}

TEST(TreeRemoval, removesItemsThatOthersAddToAnEmptiedFolder) {
  ScratchFolder scratch;
  std::map<std::string, int> added;
  auto add = [&](const std::string &name, bool isRemoval) {
    if (isRemoval && added[name]++ < 3)
      scratch.file(pathOf(name) + "/added", "");
  };
  EXPECT_EQ(removeWhile(scratch, add), "");
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

// Moves the folder away, and makes a file of its name.
void putAFileInItsPlace(const ScratchFolder &scratch, const std::string &name) {
  fs::rename(scratch.path(pathOf(name)), scratch.path("moved " + name));
  scratch.file(pathOf(name), "");
}

TEST(TreeRemoval, removesAFileThatTakesTheNameOfAnEmptiedFolder) {
  ScratchFolder scratch;
  EXPECT_EQ(removeWhile(scratch,
                        [&](const std::string &name, bool isRemoval) {
                          if (isRemoval && fs::is_directory(scratch.path(pathOf(name))))
                            putAFileInItsPlace(scratch, name);
                        }),
            "");
  EXPECT_FALSE(fs::exists(scratch.path("root")));
  EXPECT_TRUE(fs::is_directory(scratch.path("moved root")));
}

TEST(TreeRemoval, removesAFileThatTakesTheNameOfAFolderThatFilledUp) {
  ScratchFolder scratch;
  std::map<std::string, int> fillings;
  EXPECT_EQ(removeWhile(scratch,
                        [&](const std::string &name, bool isRemoval) {
                          if (isRemoval && fillings[name]++ == 0)
                            scratch.file(pathOf(name) + "/added", "kept");
                          else if (!isRemoval && fillings[name] == 1)
                            putAFileInItsPlace(scratch, name);
                        }),
            "");
  EXPECT_FALSE(fs::exists(scratch.path("root")));
  EXPECT_EQ(scratch.content("moved sub/added"), "kept");
  EXPECT_EQ(scratch.content("moved root/added"), "kept");
}

// Does something after each folder has gone.
class FolderCountingEraser final : public NS::ItemEraser {
public:
  explicit FolderCountingEraser(std::function<void()> afterFolder)
      : afterFolder_(std::move(afterFolder)) {}
  StepOutcome erase(int folder, const char *name, unsigned char /*type*/) override {
    return NS::unlinkItem(folder, name);
  }
  void countFolder() override { afterFolder_(); }

private:
  std::function<void()> afterFolder_;
};

TEST(TreeRemoval, leavesANewItemOfTheSameNameAlone) {
  ScratchFolder scratch;
  std::string root = scratch.path("root");
  std::function<void()> makeFolder = [&] { fs::create_directory(root); };
  std::function<void()> makeFile = [&] { scratch.file("root", "new"); };
  for (const auto &makeNew : {makeFolder, makeFile}) {
    fs::create_directory(root);
    FolderCountingEraser eraser(makeNew);
    EXPECT_FALSE(NS::eraseItemAtPath(root, eraser, NS::Recursion::WholeTree));
    EXPECT_TRUE(fs::remove(root));
  }
}

// Permits no folder a second time.
class OnceAdmittingEraser final : public NS::ItemEraser {
public:
  explicit OnceAdmittingEraser(std::string addition) : addition_(std::move(addition)) {}
  StepOutcome erase(int folder, const char *name, unsigned char /*type*/) override {
    StepOutcome outcome = NS::unlinkItem(folder, name);
    if (outcome.isDone())
      std::ofstream(addition_) << "from another process";
    return outcome;
  }
  StepOutcome admit(int /*folder*/) override {
    return {TreeStep::Compare, admitted_++ == 0 ? 0 : EBUSY};
  }

private:
  std::string addition_;
  int admitted_ = 0;
};

TEST(TreeRemoval, namesTheFolderThatIsNotPermittedAgain) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  scratch.file("root/file", "");
  OnceAdmittingEraser eraser(scratch.path("root/added"));
  TreeResult failure = NS::eraseItemAtPath(scratch.path("root"), eraser, NS::Recursion::WholeTree);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->outcome.errnum(), EBUSY);
  EXPECT_EQ(failure->path, scratch.path("root"));
  EXPECT_TRUE(fs::exists(scratch.path("root/added")));
}

} // namespace
