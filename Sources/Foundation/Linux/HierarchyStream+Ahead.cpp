// The part of the walk that takes what was read ahead.
#include "Foundation/Linux/HierarchyStream.h"

namespace NS {

void HierarchyStream::startAhead(Frame &root) {
  root.batch = ahead_->begin(root.descriptor, root.entry.statp);
  if (ahead_->await(*root.batch))
    return;
  dropBatch(root);
  root.reseek = true;
}

// Null when this folder holds no more, or when the walk goes on in it alone.
const DirectoryRecord *HierarchyStream::nextRecordAhead(Frame &frame) {
  while (frame.batchCursor == frame.batch->content->records.size()) {
    int errnum = frame.batch->readError;
    frame.batch = ahead_->next(*frame.batch);
    frame.batchCursor = frame.item = 0;
    if (!frame.batch) {
      frame.entry.errnum = errnum;
      frame.atEnd = true;
      return nullptr;
    }
    if (!ahead_->await(*frame.batch)) {
      dropBatch(frame);
      readOnAlone(frame);
      return nullptr;
    }
  }
  const DirectoryRecord *record =
      &directoryRecordAt(frame.batch->content->records.data() + frame.batchCursor);
  frame.batchCursor += record->length;
  frame.nextOffset = record->nextOffset;
  return record;
}

HierarchyStream::Finding HierarchyStream::takeItem(Frame &frame, const DirectoryRecord &record) {
  Finding found;
  if (!ahead_->isLookedAt(record.type))
    return found;
  const AheadItem &item = frame.batch->content->items[frame.item++];
  if (item.folder)
    return takeFolder(frame, record, *item.folder);
  found.status = item.status;
  found.errnum = item.errnum;
  found.info = item.errnum == 0 ? infoOfMode(item.status.mode) : FTSInfo::NS;
  return found;
}

HierarchyStream::Finding HierarchyStream::takeFolder(Frame &frame, const DirectoryRecord &record,
                                                     AheadBatch &batch) {
  Finding found;
  bool isReady = ahead_->await(batch);
  if (isReady) {
    found.status = batch.status;
    found.errnum = batch.statusError;
    found.info = found.errnum == 0 ? infoOfMode(found.status.mode) : FTSInfo::NS;
  }
  if (found.info == FTSInfo::D) {
    found.batch = &batch;
    return found;
  }
  ahead_->drop(batch);
  if (isReady)
    return found;
  if (frame.descriptor >= 0 || reopen(depth_ - 1))
    return look(frame.descriptor, record.name, record.type);
  found.errnum = errno;
  found.info = FTSInfo::NS;
  return found;
}

// From the record used last.
void HierarchyStream::readOnAlone(Frame &frame) {
  frame.reseek = true;
  if (frame.descriptor >= 0 || reopen(depth_ - 1))
    return;
  frame.entry.errnum = errno;
  frame.atEnd = true;
}

void HierarchyStream::dropBatch(Frame &frame) {
  if (frame.batch)
    ahead_->drop(*frame.batch);
  frame.batch = nullptr;
}

// Whether that gave anything back.
bool HierarchyStream::retreat() {
  if (!ahead_ || retreated_)
    return false;
  retreated_ = true;
  ahead_->retreat();
  return true;
}

} // namespace NS
