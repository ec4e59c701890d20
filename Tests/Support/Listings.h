// Volumes that list their folders otherwise than a disk does, or that fail, for a
// forked child.
#pragma once

#include "Foundation/Walking/POSIX/DirectoryRecords.h"

#include "Support/WatchedCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <dirent.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kwtest {

// A listing that the process requests: room for records of an open folder.
struct Listing {
  int folder;
  void *records;
  std::size_t size;

  // The bytes of records that the volume writes into at most so much of the room,
  // or a negative errno value.
  long answer(std::size_t most) const {
    long count = ::syscall(SYS_getdents64, folder, records, std::min(size, most));
    return count < 0 ? -errno : count;
  }
};

// From now on the hook answers each listing, as in answerCalls.
template <typename Hook> bool answerListings(Hook hook) {
  return answerCalls({SYS_getdents64}, [hook = std::move(hook)](const CallArguments &call) mutable {
    return hook(Listing{static_cast<int>(call[0]), reinterpret_cast<void *>(call[1]), call[2]});
  });
}

// From now on a listing gives a few entries at a time, as volumes of networks do.
inline bool listInPieces(std::size_t size = 512) {
  return answerListings(
      [=](const Listing &listing) { return std::optional(listing.answer(size)); });
}

// Replaces the types of records, of so many bytes in all.
inline void forgetTypes(void *records, long size) {
  auto *at = static_cast<char *>(records);
  for (char *end = at + size; at < end; at += NS::directoryRecordAt(at).length)
    at[offsetof(NS::DirectoryRecord, type)] = DT_UNKNOWN;
}

// From now on no listing tells files and folders apart, as that of some volumes.
inline bool listWithoutTypes() {
  return answerListings([](const Listing &listing) {
    long size = listing.answer(listing.size);
    forgetTypes(listing.records, size);
    return std::optional(size);
  });
}

// From now on each listing fails that is not the first of its folder.
inline bool failListingsAfterFirst(std::size_t size, int errnum) {
  return answerListings([=](const Listing &listing) {
    bool isFirst = ::lseek(listing.folder, 0, SEEK_CUR) == 0;
    return std::optional(isFirst ? listing.answer(size) : -static_cast<long>(errnum));
  });
}

// From now on a listing gives so many bytes at a time. Of the folder of this inode
// the listing with this number, counted from 0, runs the hook and lacks memory.
template <typename Hook>
bool lackMemoryAtListing(int number, ino_t folder, std::size_t size, Hook hook) {
  return answerListings([=, seen = 0](const Listing &listing) mutable {
    struct stat status;
    bool isOfIt = ::fstat(listing.folder, &status) == 0 && status.st_ino == folder;
    if (!isOfIt || seen++ != number)
      return std::optional(listing.answer(size));
    hook();
    return std::optional(-static_cast<long>(ENOMEM));
  });
}

// From now on the status of an item of this name cannot be read, by its name or by
// its descriptor.
inline bool failStatusOf(const std::string &name, int errnum) {
  return answerCalls({SYS_newfstatat, SYS_fstat}, [=](const CallArguments &call) {
    std::string item = call.isOf(SYS_newfstatat) ? call.text(1) : "";
    if (item.empty()) {
      std::error_code ignored;
      std::string place = "/proc/self/fd/" + std::to_string(static_cast<int>(call[0]));
      item = std::filesystem::read_symlink(place, ignored).filename();
    }
    return item == name ? std::optional(-static_cast<long>(errnum)) : std::nullopt;
  });
}

} // namespace kwtest
