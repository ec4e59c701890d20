// Opens, lists and looks, in this order.
#include "Foundation/Walking/POSIX/AheadReader.h"

#include "Foundation/Walking/Exhaustion.h"
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NS {
namespace {

bool isOpenedHere(const AheadBatch &batch) {
  return batch.first == &batch && batch.above;
}

void closeFolder(AheadBatch &batch) {
  if (batch.descriptor >= 0)
    static_cast<void>(::close(std::exchange(batch.descriptor, -1)));
}

template <typename Visit> void eachRecord(std::span<const char> records, Visit visit) {
  for (std::size_t at = 0; at < records.size();) {
    const DirectoryRecord &record = directoryRecordAt(records.data() + at);
    at += record.length;
    if (!isDotOrDotDot(record.name))
      visit(record);
  }
}

} // namespace

bool AheadReader::read(AheadBatch &batch, char *buffer) const {
  try {
    return readUnguarded(batch, buffer);
  } catch (const std::bad_alloc &) {
    return false;
  }
}

void AheadReader::forget(AheadBatch &batch) {
  if (isOpenedHere(batch))
    closeFolder(batch);
  batch.openError = batch.readError = 0;
  batch.content.reset();
  batch.folders.reset();
}

bool AheadReader::readUnguarded(AheadBatch &batch, char *buffer) const {
  if (!batch.content)
    batch.content = std::make_unique<AheadContent>();
  if (isOpenedHere(batch) && !openFolder(batch))
    return false;
  if (batch.openError != 0)
    return true;
  std::span<const char> records = list(batch, buffer);
  if (isExhaustion(batch.readError))
    return false;
  lookAtItems(batch, records);
  // Most folders hold no others and are finished here.
  if (isOpenedHere(batch) && batch.folderCount == 0 && !batch.rest)
    closeFolder(batch);
  return true;
}

bool AheadReader::openFolder(AheadBatch &batch) {
  int above = batch.above->descriptor;
  int descriptor = ::openat(above, batch.name, folderFlags);
  FTSStat status;
  int error = 0;
  if (descriptor < 0) {
    batch.openError = errno;
    error = foldercalls::readStatus(above, batch.name, status);
  } else {
    error = foldercalls::readStatus(descriptor, status);
    batch.descriptor = descriptor;
  }
  batch.found = foundBy(error, status);
  return !isExhaustion(batch.openError);
}

std::span<const char> AheadReader::list(AheadBatch &batch, char *buffer) const {
  std::size_t filled = 0;
  bool atEnd = false;
  while (!atEnd && bufferSize - filled >= recordRoom) {
    long count = foldercalls::list(batch.first->descriptor, buffer + filled, bufferSize - filled);
    // A folder that was removed meanwhile has no further entries.
    if (count < 0 && errno != ENOENT)
      batch.readError = errno;
    std::size_t size = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (size > 0)
      batch.position = positionAfter(buffer + filled, size);
    atEnd = size == 0 || isLastPosition(batch.position);
    filled += size;
  }
  std::unique_ptr<AheadBatch> rest;
  if (!atEnd)
    rest = std::make_unique<AheadBatch>();
  std::span<const char> records(buffer, filled);
  makeRoom(batch, records);
  if (rest) {
    rest->first = batch.first;
    rest->level = batch.level;
    publish_(batch, std::move(rest));
  }
  return records;
}

// Allocates everything for the look at the items, so that the look cannot fail.
void AheadReader::makeRoom(AheadBatch &batch, std::span<const char> records) {
  std::size_t items = 0;
  std::size_t folders = 0;
  eachRecord(records, [&](const DirectoryRecord &record) {
    ++items;
    folders += mayBeFolder(record.type) ? 1u : 0u;
  });
  batch.content->items.reserve(items);
  batch.content->names.reserve(records.size());
  if (folders > 0 && batch.level < levels)
    batch.folders = std::make_unique<AheadBatch[]>(folders);
}

void AheadReader::lookAtItems(AheadBatch &batch, std::span<const char> records) const {
  int descriptor = batch.first->descriptor;
  bool goesDeeper = batch.level < levels;
  eachRecord(records, [&](const DirectoryRecord &record) {
    bool isFolder = record.type == DT_DIR;
    FoundItem found;
    if (!isFolder || !goesDeeper) {
      found = look_.at(descriptor, record.name, record.type);
      if (look_.holdsBack(record.name, found, batch.held))
        return;
      isFolder = found.info == FTSInfo::D && mayBeFolder(record.type);
    }
    keep(batch, record, found, isFolder && goesDeeper);
  });
}

// A folder that is read ahead gets a batch of its own.
void AheadReader::keep(AheadBatch &batch, const DirectoryRecord &record, const FoundItem &found,
                       bool isReadAhead) {
  std::vector<char> &names = batch.content->names;
  std::size_t begin = names.size();
  names.insert(names.end(), record.name, record.name + std::strlen(record.name) + 1);
  batch.content->items.push_back({names.data() + begin, found, nullptr});
  AheadItem &item = batch.content->items.back();
  if (!isReadAhead)
    return;
  item.folder = &batch.folders[batch.folderCount++];
  item.folder->above = batch.first;
  item.folder->name = item.name;
  item.folder->level = batch.level + 1;
}

} // namespace NS
