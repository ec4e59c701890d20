// The sequence of the walk. FTS.h describes it.
#include "Foundation/Walking/POSIX/HierarchyStream.h"

#include "Foundation/Base/Progress.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>

namespace NS {
namespace {

// Ancestors above this level are compared one by one, deeper ones by a table.
constexpr std::size_t linearAncestors = 32;

// The length of the root's name within its path: the whole path without a
// slash, 0 for a path that ends in one.
std::size_t rootNameLength(const std::string &path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path == "/")
    return path.size();
  return path.size() - slash - 1;
}

} // namespace

HierarchyStream::HierarchyStream(const std::string &path, int options, const FTSSieve *sieve,
                                 unsigned processors)
    : options_(options), look_(options, sieve), path_(path),
      chain_(
          {.mountPoints = MountPoints::Ignore, .window = mostDescriptors - 2, .keepsRoot = true}) {
  rootParent_.level = -1;
  chain_.setReliever([this] { return retreat(); });
  if (processors < 2)
    return;
  shareAhead_ = DescriptorBudget::ofWalks().takeSpare(DescriptorBudget::sharesForHelpers);
  if (!shareAhead_)
    return;
  ahead_ = std::make_unique<ReadAhead>(look_, processors);
}

FTSEntry *HierarchyStream::read() {
  if (ended_)
    return nullptr;
  if (Progress::current().isCancelled())
    return giveUp(ECANCELED);
  FTSEntry *entry = step();
  // Such an error says nothing about the item: without the failure the walk
  // would look complete.
  if (entry && isExhaustion(entry->errnum))
    return giveUp(entry->errnum);
  if (!entry)
    closeAll();
  else
    count(*entry);
  return entry;
}

FTSEntry *HierarchyStream::giveUp(int errnum) {
  failure_ = errnum;
  closeAll();
  return nullptr;
}

void HierarchyStream::count(const FTSEntry &entry) {
  Progress &progress = Progress::current();
  bool isSecondVisit =
      entry.info == FTSInfo::DP || entry.info == FTSInfo::DNR || entry.info == FTSInfo::ERR;
  if (!isSecondVisit)
    progress.countItem(entry.statp.allocatedBytes());
  if (progress.wantsPath())
    progress.setPath(entry.path);
}

FTSEntry *HierarchyStream::step() {
  if (!started_) {
    started_ = true;
    pathStart_ = path_.data();
    return enter(look_.at(AT_FDCWD, path_.c_str(), DT_UNKNOWN), nullptr, rootNameLength(path_));
  }
  if (depth_ > 0 && top().stage == Stage::Left)
    pop();
  if (depth_ == 0)
    return nullptr;
  Frame &frame = top();
  if (frame.stage == Stage::Announced) {
    if (!mayDescend(frame))
      return leave(frame);
    if (int errnum = descend(); errnum != 0)
      return cannotRead(frame, errnum);
  }
  return nextItem();
}

void HierarchyStream::set(FTSEntry &entry, FTSInstruction instruction) {
  if (instruction != FTSInstruction::SKIP)
    return;
  if (depth_ > 0 && &top().entry == &entry)
    top().skip = true;
}

// Makes the entry of the item whose path is path_.
FTSEntry *HierarchyStream::enter(const FoundItem &found, AheadBatch *batch,
                                 std::size_t nameLength) {
  FTSInfo info = found.info;
  if (info == FTSInfo::D) {
    if (!isOpenAncestor(idOf(found.status)))
      return push(found.status, batch, nameLength);
    if (batch)
      ahead_->drop(*batch);
    info = FTSInfo::DC;
  }
  leaf_.info = info;
  leaf_.errnum = found.errnum;
  leaf_.level = static_cast<int>(depth_);
  leaf_.number = 0;
  leaf_.parent = depth_ > 0 ? &top().entry : &rootParent_;
  leaf_.statp = found.status;
  point(leaf_, path_.size(), nameLength);
  return &leaf_;
}

FTSEntry *HierarchyStream::push(const FTSStat &status, AheadBatch *batch, std::size_t nameLength) {
  FTSEntry *parent = depth_ > 0 ? &top().entry : &rootParent_;
  if (depth_ == frames_.size())
    frames_.emplace_back();
  Frame &frame = frames_[depth_];
  frame = Frame{};
  frame.pathLength = path_.size();
  frame.nameLength = nameLength;
  frame.batch = batch;
  frame.entry.level = static_cast<int>(depth_);
  frame.entry.parent = parent;
  frame.entry.statp = status;
  point(frame.entry, frame.pathLength, nameLength);
  FolderID id = idOf(status);
  if (depth_ >= linearAncestors)
    deepAncestors_.insert(id);
  chain_.add(path_.c_str() + (depth_ > 0 ? path_.size() - nameLength : 0), id);
  ++depth_;
  return &frame.entry;
}

// The item of that name in the present folder.
FTSEntry *HierarchyStream::enterItem(const char *name, const FoundItem &found, AheadBatch *batch) {
  std::size_t length = std::strlen(name);
  path_.resize(top().pathLength);
  appendName(name, length);
  return enter(found, batch, length);
}

FTSEntry *HierarchyStream::nextItem() {
  Frame &frame = top();
  if (const AheadItem *item = frame.batch ? nextItemAhead(frame) : nullptr)
    return enterItemAhead(*item);
  StepOutcome outcome;
  while (const FolderEntry *entry = chain_.next(outcome)) {
    FoundItem found = look_.at(chain_.folder(), entry->name, entry->type);
    HeldItems held;
    if (!look_.holdsBack(entry->name, found, held))
      return enterItem(entry->name, found, nullptr);
    passOver(held);
    if (Progress::current().isCancelled())
      return giveUp(ECANCELED);
  }
  if (outcome.isFailed())
    frame.entry.errnum = outcome.errnum();
  return leave(frame);
}

// Adds the items of the present folder that the sieve held back to its number and
// to the progress.
void HierarchyStream::passOver(const HeldItems &held) {
  FTSEntry &folder = top().entry;
  folder.number = wrappingSum(folder.number, held.number);
  Progress &progress = Progress::current();
  progress.countItems(held.items, held.bytes);
  if (progress.wantsPath())
    progress.setPath(folder.path);
}

FTSEntry *HierarchyStream::leave(Frame &frame) {
  dropBatch(frame);
  frame.stage = Stage::Left;
  frame.entry.info = frame.entry.errnum == 0 ? FTSInfo::DP : FTSInfo::ERR;
  path_.resize(frame.pathLength);
  return &frame.entry;
}

FTSEntry *HierarchyStream::cannotRead(Frame &frame, int errnum) {
  frame.entry.errnum = errnum;
  leave(frame);
  frame.entry.info = FTSInfo::DNR;
  return &frame.entry;
}

bool HierarchyStream::mayDescend(const Frame &frame) const {
  if (frame.skip)
    return false;
  return !(options_ & FTSOption::XDEV) || frame.entry.statp.device == frames_[0].entry.statp.device;
}

// Begins with the contents of the folder announced last.
int HierarchyStream::descend() {
  Frame &frame = top();
  if (frame.batch) { // ready since the folder was announced
    useBatch(frame);
    frame.stage = Stage::Open;
    return frame.batch->openError;
  }
  if (StepOutcome outcome = chain_.open(); outcome.isFailed())
    return outcome.errnum();
  frame.stage = Stage::Open;
  if (ahead_ && depth_ == 1)
    startAhead(frame);
  return 0;
}

// Goes back to the folder above. Does not open it when its items are read ahead:
// the walk rarely needs the folder itself then.
void HierarchyStream::pop() {
  if (depth_ > linearAncestors)
    deepAncestors_.erase(idOf(top().entry.statp));
  if (--depth_ == 0)
    ahead_.reset();
  if (depth_ == 0 || top().batch) {
    chain_.drop();
    return;
  }
  StepOutcome outcome = chain_.leave();
  if (outcome.isFailed())
    outcome = chain_.reopen();
  if (outcome.isDone())
    return;
  top().entry.errnum = outcome.errnum();
  chain_.endListing();
}

bool HierarchyStream::isOpenAncestor(const FolderID &id) const {
  for (std::size_t index = 0; index < std::min(depth_, linearAncestors); ++index)
    if (idOf(frames_[index].entry.statp) == id)
      return true;
  return depth_ > linearAncestors && deepAncestors_.contains(id);
}

void HierarchyStream::closeAll() {
  retreat();
  for (std::size_t index = depth_; index-- > 0;)
    dropBatch(frames_[index]);
  ahead_.reset();
  chain_.clear();
  depth_ = 0;
  ended_ = true;
  shareAhead_ = {};
  share_.reset();
}

void HierarchyStream::appendName(const char *name, std::size_t length) {
  if (path_.empty() || path_.back() != '/')
    path_ += '/';
  path_.append(name, length);
  if (path_.data() != pathStart_)
    followPath();
}

void HierarchyStream::point(FTSEntry &entry, std::size_t pathLength, std::size_t nameLength) {
  entry.path = std::string_view(path_.data(), pathLength);
  entry.name = entry.path.substr(pathLength - nameLength);
}

void HierarchyStream::followPath() {
  pathStart_ = path_.data();
  for (std::size_t index = 0; index < depth_; ++index)
    point(frames_[index].entry, frames_[index].pathLength, frames_[index].nameLength);
}

} // namespace NS
