// The part of the walk that takes items that were read ahead.
#include "Foundation/Walking/POSIX/HierarchyStream.h"

namespace NS {

void HierarchyStream::startAhead(Frame &root) {
  root.batch = ahead_->begin(chain_.folder(), root.entry.statp);
  if (ahead_->await(*root.batch))
    return;
  dropBatch(root);
  chain_.goOnFrom(0);
}

// Null at the end of this folder, or when the walk goes on in it alone.
const DirectoryRecord *HierarchyStream::nextRecordAhead(Frame &frame) {
  while (frame.batchCursor == frame.batch->content->records.size()) {
    int errnum = frame.batch->readError;
    frame.batch = ahead_->next(*frame.batch);
    frame.batchCursor = frame.item = 0;
    if (!frame.batch) {
      frame.entry.errnum = errnum;
      chain_.endListing();
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
  frame.position = record->nextOffset;
  return record;
}

HierarchyStream::Finding HierarchyStream::takeItem(Frame &frame, const DirectoryRecord &record) {
  Finding found;
  if (!ahead_->isLookedAt(record.type))
    return found;
  const AheadItem &item = frame.batch->content->items[frame.item++];
  if (item.folder)
    return takeFolder(record, *item.folder);
  found.status = item.status;
  found.errnum = item.errnum;
  found.info = item.errnum == 0 ? infoOfMode(item.status.mode) : FTSInfo::NS;
  return found;
}

HierarchyStream::Finding HierarchyStream::takeFolder(const DirectoryRecord &record,
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
  if (StepOutcome outcome = beOpen(); outcome.isFailed())
    found = {{}, FTSInfo::NS, outcome.errnum(), nullptr};
  else
    found = look(record.name, record.type);
  return found;
}

// Reads on from the last used record.
void HierarchyStream::readOnAlone(Frame &frame) {
  chain_.goOnFrom(frame.position);
  if (StepOutcome outcome = beOpen(); outcome.isFailed()) {
    frame.entry.errnum = outcome.errnum();
    chain_.endListing();
  }
}

// Opens the present folder, if it was only read ahead.
StepOutcome HierarchyStream::beOpen() {
  return chain_.isOpen() ? StepOutcome() : chain_.reopen();
}

void HierarchyStream::dropBatch(Frame &frame) {
  if (frame.batch)
    ahead_->drop(*frame.batch);
  frame.batch = nullptr;
}

// Tells whether that released any descriptor.
bool HierarchyStream::retreat() {
  if (!ahead_ || retreated_)
    return false;
  retreated_ = true;
  ahead_->retreat();
  return true;
}

} // namespace NS
