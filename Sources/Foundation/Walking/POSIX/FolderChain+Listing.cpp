// Lists the folders of a chain.
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr std::size_t batchSize = 64 * 1024;
// The most bytes of records that are kept. Beyond it, folders forget the records
// that they have not returned yet, and list them again later.
constexpr std::size_t recordBudget = 4 * 1024 * 1024;
constexpr std::size_t frugalBatchSize = 4 * 1024;

} // namespace

const FolderEntry *FolderChain::next(StepOutcome &outcome) {
  outcome = {};
  Link &link = links_.back();
  for (;;) {
    const DirectoryRecord *record = hasLong(link) ? longListing_.next() : nextRecord(link);
    if (record && !isDotOrDotDot(record->name)) {
      entry_ = {record->name, record->inode, record->type};
      return &entry_;
    }
    if (record)
      continue;
    if (link.isAtEnd)
      return nullptr;
    outcome = {TreeStep::List, fill(link)};
    if (outcome.isFailed())
      return nullptr;
  }
}

const DirectoryRecord *FolderChain::nextRecord(Link &link) {
  if (link.cursor == link.end)
    return nullptr;
  const DirectoryRecord &record = directoryRecordAt(records_.at(link.cursor));
  link.cursor += record.length;
  link.position = record.nextOffset;
  return &record;
}

int FolderChain::fill(Link &link) {
  std::size_t size = link.base + batchSize > recordBudget ? frugalBatchSize : batchSize;
  records_.reserve(link.base + size);
  link.cursor = link.end = link.base;
  long count = list(link, size);
  if (count > 0) {
    std::size_t filled = static_cast<std::size_t>(count);
    link.isAtEnd = isLastPosition(positionAfter(records_.at(link.base), filled));
    bool isFull = filled + recordRoom > batchSize;
    if (isFull && !link.isAtEnd && rules_.order == EntryOrder::ByInode && longListing_.isFree())
      beginLong(link, filled);
    else
      link.end += filled;
    return 0;
  }
  link.isAtEnd = true;
  // A folder that was removed meanwhile has no further entries.
  return count < 0 && errno != ENOENT ? errno : 0;
}

long FolderChain::list(Link &link, std::size_t size) {
  if (link.isElsewhere && ::lseek(link.descriptor.get(), link.position, SEEK_SET) < 0)
    return -1;
  link.isElsewhere = false;
  long count = -1;
  do
    count = foldercalls::list(link.descriptor.get(), records_.at(link.base), size);
  while (count < 0 && patience_.waitOut(errno));
  return count;
}

// Drops the folder's unread records; the next read lists them again, from the
// position.
void FolderChain::forgetUnread(Link &link) {
  link.cursor = link.end = link.base;
  link.isAtEnd = false;
  link.isElsewhere = true;
}

void FolderChain::forgetManyUnread(Link &link) {
  if (link.end > recordBudget && link.cursor != link.end)
    forgetUnread(link);
}

// With the records that were listed first.
void FolderChain::beginLong(Link &link, std::size_t filled) {
  longListing_.begin(indexOf(link), link.descriptor.get(), records_.at(link.base), filled);
  link.position = longListing_.position();
  link.isAtEnd = isLastPosition(link.position);
}

void FolderChain::endLong(const Link &link) {
  if (hasLong(link))
    longListing_.end();
}

void FolderChain::goOnFrom(std::int64_t position) {
  Link &link = links_.back();
  endLong(link);
  forgetUnread(link);
  link.position = position;
}

void FolderChain::endListing() {
  Link &link = links_.back();
  endLong(link);
  link.cursor = link.end = link.base;
  link.isAtEnd = true;
}

bool FolderChain::isFolder(const FolderEntry &entry) const {
  if (entry.type != DT_UNKNOWN)
    return entry.type == DT_DIR;
  struct stat status;
  return ::fstatat(folder(), entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

} // namespace NS
