// Sorted runs of fingerprints: one in memory, the earlier ones in a file.
//
// A fingerprint is a keyed hash of an item's identity, size and time. The key is
// random, so that no other process can make an item with the fingerprint of a
// copied one. When the run in memory is full, it is sorted and appended to the
// file as a run; memory keeps the first fingerprint of each block of it. A lookup
// searches the run in memory, and for each run in the file finds the one block
// that can hold the fingerprint, reads it and searches it.
#include "Foundation/Trees/POSIX/CopiedItems.h"

#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Trees/POSIX/ItemCopy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <initializer_list>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr std::size_t blockCount = 512; // fingerprints that are read at once

// Takes the time when the host has no random bytes.
std::uint64_t randomKey() {
  std::uint64_t key = 0;
  if (::getentropy(&key, sizeof key) == 0)
    return key;
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

std::uint64_t mixed(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9u;
  value = (value ^ (value >> 27)) * 0x94d049bb133111ebu;
  return value ^ (value >> 31);
}

std::uint64_t hashOf(std::uint64_t key, std::initializer_list<std::uint64_t> values) {
  std::uint64_t hash = key;
  for (std::uint64_t value : values)
    hash = mixed(hash + 0x9e3779b97f4a7c15u) ^ mixed(value + key);
  return mixed(hash);
}

std::uint64_t number(const timespec &time) {
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000u +
         static_cast<std::uint64_t>(time.tv_nsec);
}

// A file that disappears with its descriptor.
Descriptor openUnnamedFile(int folder) {
  Descriptor file(::openat(folder, CopiedItems::fileName, O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC,
                           S_IRUSR | S_IWUSR));
  if (file)
    static_cast<void>(::unlinkat(folder, CopiedItems::fileName, 0));
  return file;
}

} // namespace

CopiedItems::CopiedItems(std::size_t bound) : bound_(bound), key_(randomKey()) {}

CopiedItems::Fingerprint CopiedItems::fingerprintOf(const ItemStatus &status,
                                                    Likeness likeness) const {
  if (S_ISDIR(status.mode))
    return hashOf(key_, {0, status.device, status.inode});
  bool isUnchanged = likeness == Likeness::Unchanged;
  return hashOf(key_, {isUnchanged ? 1u : 2u, status.device, status.inode,
                       static_cast<std::uint64_t>(status.size),
                       number(isUnchanged ? status.changed : status.times[1])});
}

int CopiedItems::add(const ItemStatus &status) {
  int error = addFingerprint(fingerprintOf(status, Likeness::Unchanged));
  if (error == 0 && status.links > 1 && !S_ISDIR(status.mode))
    error = addFingerprint(fingerprintOf(status, Likeness::SameContent));
  return error;
}

int CopiedItems::addFingerprint(Fingerprint fingerprint) {
  if (recent_.size() >= bound_)
    if (int error = spill())
      return error;
  recent_.push_back(fingerprint);
  return 0;
}

int CopiedItems::spill() {
  if (!file_)
    file_ = openUnnamedFile(folder_);
  if (!file_)
    return errno;
  std::sort(recent_.begin(), recent_.end());
  if (int error = writeFully(file_.get(), recent_.data(), recent_.size() * sizeof(Fingerprint),
                             static_cast<off_t>(inFile_ * sizeof(Fingerprint))))
    return error;
  Run run{inFile_, recent_.size(), {}};
  for (std::size_t at = 0; at < recent_.size(); at += blockCount)
    run.firsts.push_back(recent_[at]);
  runs_.push_back(std::move(run));
  inFile_ += recent_.size();
  recent_.clear();
  return 0;
}

void CopiedItems::finish() {
  std::sort(recent_.begin(), recent_.end());
}

bool CopiedItems::contains(const ItemStatus &status, Likeness likeness) const {
  Fingerprint fingerprint = fingerprintOf(status, likeness);
  return std::binary_search(recent_.begin(), recent_.end(), fingerprint) ||
         std::any_of(runs_.begin(), runs_.end(),
                     [&](const Run &run) { return runContains(run, fingerprint); });
}

bool CopiedItems::runContains(const Run &run, Fingerprint fingerprint) const {
  auto above = std::upper_bound(run.firsts.begin(), run.firsts.end(), fingerprint);
  if (above == run.firsts.begin())
    return false;
  auto first = static_cast<std::size_t>(above - run.firsts.begin() - 1) * blockCount;
  std::array<Fingerprint, blockCount> block;
  std::size_t count = std::min(blockCount, run.count - first);
  ssize_t size = retrying([&] {
    return ::pread(file_.get(), block.data(), count * sizeof(Fingerprint),
                   static_cast<off_t>((run.start + first) * sizeof(Fingerprint)));
  });
  return size == static_cast<ssize_t>(count * sizeof(Fingerprint)) &&
         std::binary_search(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(count),
                            fingerprint);
}

} // namespace NS
