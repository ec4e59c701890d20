// The walk over a file hierarchy: getdents64 in large batches, one statx for
// each item, every name resolved relative to its folder's descriptor. For
// bodies of the seam only.
//
// A frame stands for each folder on the way down. Only the deepest frames (and
// the root) hold a descriptor; one that was given up is opened again from its
// child's ".." and recognised by device and inode. The batches of all frames
// lie on one stack of records; when that grows large, a frame's unread records
// are forgotten and read again later from the position of the last one used.
//
// Where a walk visits everything and there are processors for it, its upper
// levels are read ahead by several threads: a frame there takes its items from
// batches instead of a descriptor. Sequence and fields are the same.
#pragma once

#include "Foundation/DescriptorBudget.h"
#include "Foundation/Exhaustion.h"
#include "Foundation/FTS.h"
#include "Foundation/POSIX/DirectoryRecords.h"
#include "Foundation/POSIX/FolderCalls.h"
#include "Foundation/POSIX/ReadAhead.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

namespace NS {

class HierarchyStream final : public FTSStream {
public:
  // Descriptors that one walk holds at most, one of them while it moves, without
  // what is read ahead; fewer when the process runs out.
  static constexpr std::size_t mostDescriptors = 16;

  // Without processors to share, the walk keeps to its caller's thread.
  HierarchyStream(const std::string &path, int options, unsigned processors);
  ~HierarchyStream() override { closeAll(); }
  HierarchyStream(const HierarchyStream &) = delete;
  HierarchyStream &operator=(const HierarchyStream &) = delete;

  FTSEntry *read() override;
  int failure() const override { return failure_; }
  void set(FTSEntry &entry, FTSInstruction instruction) override;
  void close() override { closeAll(); }

private:
  static FTSInfo infoOfMode(std::uint32_t mode);

  enum class Stage : std::uint8_t {
    Announced, // returned as D, not opened
    Open,      // its items are being returned
    Left,      // returned for the second time
  };

  struct Frame {
    FTSEntry entry;
    std::size_t pathLength = 0;
    std::size_t nameLength = 0;
    int descriptor = -1; // -1 too while given up
    Stage stage = Stage::Announced;
    bool skip = false;
    bool atEnd = false;  // the volume has no more records
    bool reseek = false; // the descriptor does not stand at nextOffset
    // Unread records: [cursor, end) of the record stack, the batch from base on.
    std::size_t base = 0;
    std::size_t cursor = 0;
    std::size_t end = 0;
    std::int64_t nextOffset = 0; // behind the record used last
    FolderID id{};               // to recognise the folder by when it is opened again
    // Where it is read ahead: the batch in use, the place of its next record,
    // and the next of the items that were looked at.
    AheadBatch *batch = nullptr;
    std::size_t batchCursor = 0;
    std::size_t item = 0;
  };

  // What is known of an item besides its name.
  struct Finding {
    FTSStat status;
    FTSInfo info = FTSInfo::NSOK;
    int errnum = 0;
    AheadBatch *batch = nullptr; // of a folder that is read ahead
  };

  FTSEntry *step();
  FTSEntry *giveUp(int errnum);
  static void count(const FTSEntry &entry);
  Frame &top() { return frames_[depth_ - 1]; }
  Finding look(int folder, const char *name, std::uint8_t type) const;
  FTSEntry *enter(const Finding &found, std::size_t nameLength);
  FTSEntry *push(const Finding &found, std::size_t nameLength);
  FTSEntry *nextItem();
  FTSEntry *leave(Frame &frame);
  FTSEntry *cannotRead(Frame &frame, int errnum);
  bool mayDescend(const Frame &frame) const;
  int descend();
  int openTop();
  void pop();

  const DirectoryRecord *nextRecord(Frame &frame);
  void refill(Frame &frame);
  void forgetUnread(Frame &frame);

  const DirectoryRecord *nextRecordAhead(Frame &frame);
  Finding takeItem(Frame &frame, const DirectoryRecord &record);
  Finding takeFolder(Frame &frame, const DirectoryRecord &record, AheadBatch &batch);
  void startAhead(Frame &root);
  void readOnAlone(Frame &frame);
  void dropBatch(Frame &frame);
  bool retreat();

  bool giveUpOldest();
  int openWithin(int folder, const char *name, int flags);
  void restore(std::size_t index, int child);
  bool reopen(std::size_t index);
  int openFromRoot(std::size_t index);
  bool isOpenAncestor(const FolderID &id) const;
  void closeAll();

  void appendName(const char *name, std::size_t length);
  void point(FTSEntry &entry, std::size_t pathLength, std::size_t nameLength);
  void followPath();

  std::optional<WalkShare> share_{std::in_place}; // as long as anything is open
  DescriptorBudget::Share shareAhead_;
  Patience patience_;
  int failure_ = 0;
  bool ended_ = false;
  const int options_;
  bool started_ = false;
  std::string path_;                // of the entry returned last
  const char *pathStart_ = nullptr; // where the views of the frames point
  FTSEntry rootParent_;
  FTSEntry leaf_; // whatever is no folder
  // The first depth_ frames are in use; the others wait to be used again, as
  // entries must not move while a caller holds them.
  std::deque<Frame> frames_;
  std::size_t depth_ = 0;
  // The frames from here on hold their descriptors, and so does the root's;
  // those that are read ahead may hold none anywhere.
  std::size_t firstHeld_ = 1;
  RecordStack records_;
  std::unordered_set<FolderID, FolderIDHash> deepAncestors_;
  std::unique_ptr<ReadAhead> ahead_; // null for a walk alone
  bool retreated_ = false;           // nothing more is read ahead
};

} // namespace NS
