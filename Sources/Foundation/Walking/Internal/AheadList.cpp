// A doubly linked list through the batches.
#include "Foundation/Walking/Internal/AheadList.h"

namespace NS {

using State = AheadBatch::State;

AheadBatch *AheadList::firstWaiting() const {
  AheadBatch *batch = waiting() == 0 ? nullptr : head_;
  while (batch && batch->state != State::Waiting)
    batch = batch->after;
  return batch;
}

void AheadList::insertAfter(AheadBatch *place, AheadBatch &batch) {
  batch.before = place;
  batch.after = place ? place->after : head_;
  (place ? place->after : head_) = &batch;
  if (batch.after)
    batch.after->before = &batch;
  ++waiting_;
}

void AheadList::take(AheadBatch &batch) {
  batch.state = State::Reading;
  --waiting_;
}

void AheadList::putBack(AheadBatch &batch) {
  batch.state = State::Waiting;
  ++waiting_;
}

void AheadList::replaceByFolders(AheadBatch &batch) {
  AheadBatch *place = &batch;
  for (std::size_t index = 0; index < batch.folderCount; ++index) {
    insertAfter(place, batch.folders[index]);
    place = &batch.folders[index];
  }
  unlink(batch);
}

void AheadList::remove(AheadBatch &batch) {
  unlink(batch);
  --waiting_;
}

void AheadList::unlink(AheadBatch &batch) {
  (batch.before ? batch.before->after : head_) = batch.after;
  if (batch.after)
    batch.after->before = batch.before;
}

} // namespace NS
