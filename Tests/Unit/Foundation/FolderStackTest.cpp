// The chain of folders that every walk stands in.
#include "Foundation/Linux/FolderStack.h"

#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::FolderStack;

constexpr std::size_t depth = FolderStack::window + 4;

// Makes "root/d/d/d..." and goes down to its end.
void descend(const ScratchFolder &scratch, FolderStack &stack) {
  std::string path = scratch.path("root");
  for (std::size_t level = 1; level < depth; ++level)
    path += "/d";
  fs::create_directories(path);
  ASSERT_EQ(stack.openRoot(AT_FDCWD, scratch.path("root").c_str()), 0);
  while (stack.depth() < depth)
    ASSERT_EQ(stack.enter("d"), 0);
}

TEST(FolderStack, keepsOnlyAFewFoldersOpenAndFindsItsWayBack) {
  ScratchFolder scratch;
  std::size_t before = kwtest::openDescriptorCount();
  FolderStack stack(NS::MountPoints::Refuse);
  descend(scratch, stack);
  EXPECT_EQ(kwtest::openDescriptorCount(), before + FolderStack::window);
  EXPECT_EQ(stack.pathBelowRoot().size(), 2 * (depth - 1) - 1);
  while (!stack.empty())
    ASSERT_EQ(stack.leave(), 0);
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(FolderStack, doesNotLeaveThroughAFolderThatWasMovedElsewhere) {
  ScratchFolder scratch;
  FolderStack stack(NS::MountPoints::Refuse);
  descend(scratch, stack);
  // The fifth folder is the uppermost that is open; the one above it is found
  // through it.
  fs::create_directory(scratch.path("outside"));
  fs::rename(scratch.path("root/d/d/d/d"), scratch.path("outside/d"));
  while (stack.depth() > 5)
    ASSERT_EQ(stack.leave(), 0);
  EXPECT_EQ(stack.leave(), ESTALE);
}

TEST(FolderStack, entersNoLinkAndNoFile) {
  ScratchFolder scratch;
  fs::create_directory_symlink(".", scratch.path("link"));
  scratch.file("file", "");
  FolderStack stack(NS::MountPoints::Refuse);
  ASSERT_EQ(stack.openRoot(AT_FDCWD, scratch.path().c_str()), 0);
  int error = stack.enter("link");
  EXPECT_TRUE(error == ELOOP || error == ENOTDIR) << error;
  EXPECT_EQ(stack.enter("file"), ENOTDIR);
  EXPECT_EQ(stack.enter("missing"), ENOENT);
  EXPECT_EQ(stack.depth(), 1u);
}

} // namespace
