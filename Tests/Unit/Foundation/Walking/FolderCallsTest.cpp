// The identity of a folder, by which a walk knows it again.
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using kwtest::CallArguments;
using kwtest::inForkedChild;
using kwtest::ScratchFolder;
using NS::FolderIdentity;

// Of zeros when it cannot be read.
FolderIdentity identityOf(const std::string &path) {
  NS::Descriptor folder(::open(path.c_str(), NS::folderFlags));
  FolderIdentity identity;
  return NS::foldercalls::identify(folder.get(), identity) == 0 ? identity : FolderIdentity();
}

TEST(FolderIdentity, differsForOneFolderSeenThroughTwoMounts) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("folder"));
  std::filesystem::create_directories(scratch.path("mount"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("folder"), scratch.path("mount")))
                return "no mount";
              FolderIdentity folder = identityOf(scratch.path("folder"));
              FolderIdentity mounted = identityOf(scratch.path("mount"));
              if (folder.id != mounted.id)
                return "two folders";
              if (!folder.matches(identityOf(scratch.path("folder"))))
                return "another folder";
              return folder.matches(mounted) ? "the same view" : "";
            }),
            "");
}

// Calls statx, but keeps the number of the mount to itself.
long statusWithoutMount(const CallArguments &call) {
  auto *found = reinterpret_cast<struct statx *>(call[4]);
  long result = ::syscall(SYS_statx, call[0], call[1], call[2], call[3], found);
  found->stx_mask &= ~static_cast<unsigned>(STATX_MNT_ID);
  found->stx_mnt_id = 0;
  return result < 0 ? -errno : result;
}

TEST(FolderIdentity, hasTheVolumeWhereTheSystemDoesNotNumberMounts) {
  ScratchFolder scratch;
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              if (!kwtest::answerCalls({SYS_statx}, [](const CallArguments &call) {
                    return std::optional(statusWithoutMount(call));
                  }))
                return "the calls cannot be watched";
              FolderIdentity identity = identityOf(scratch.path());
              return identity.id.inode != 0 && identity.mount == identity.id.device
                         ? ""
                         : "mount " + std::to_string(identity.mount);
            }),
            "");
}

} // namespace
