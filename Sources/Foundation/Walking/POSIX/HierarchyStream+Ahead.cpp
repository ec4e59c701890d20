// The part of the walk that takes items that were read ahead.
#include "Foundation/Walking/POSIX/HierarchyStream.h"

namespace NS {

void HierarchyStream::startAhead(Frame &root) {
  root.batch = ahead_->begin(chain_.folder());
  if (beginBatch(root))
    return;
  dropBatch(root);
  chain_.goOnFrom(0);
}

// Tells whether the batch of the frame, which is the present one, could be read.
bool HierarchyStream::beginBatch(Frame &frame) {
  if (!ahead_->await(*frame.batch))
    return false;
  useBatch(frame);
  return true;
}

// Takes the items of a batch that is ready.
void HierarchyStream::useBatch(Frame &frame) {
  frame.item = 0;
  passOver(frame.batch->held);
}

// Null at the end of this folder, or when the walk has to read on in it by itself.
const AheadItem *HierarchyStream::nextItemAhead(Frame &frame) {
  while (frame.item == frame.batch->content->items.size()) {
    int errnum = frame.batch->readError;
    std::int64_t position = frame.batch->position;
    frame.batch = ahead_->next(*frame.batch);
    if (!frame.batch) {
      frame.entry.errnum = errnum;
      chain_.endListing();
      return nullptr;
    }
    if (!beginBatch(frame)) {
      dropBatch(frame);
      readOnAlone(frame, position);
      return nullptr;
    }
  }
  return &frame.batch->content->items[frame.item++];
}

FTSEntry *HierarchyStream::enterItemAhead(const AheadItem &item) {
  return item.folder ? enterFolderAhead(item) : enterItem(item.name, item.found, nullptr);
}

FTSEntry *HierarchyStream::enterFolderAhead(const AheadItem &item) {
  bool isReady = ahead_->await(*item.folder);
  FoundItem found = item.folder->found;
  if (isReady && found.info == FTSInfo::D)
    return enterItem(item.name, found, item.folder);
  ahead_->drop(*item.folder);
  if (!isReady) {
    StepOutcome outcome = beOpen();
    found = outcome.isDone() ? look_.at(chain_.folder(), item.name, DT_UNKNOWN)
                             : foundBy(outcome.errnum(), {});
  }
  return enterItem(item.name, found, nullptr);
}

void HierarchyStream::readOnAlone(Frame &frame, std::int64_t position) {
  chain_.goOnFrom(position);
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
