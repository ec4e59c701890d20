// The walk over a file hierarchy, entry by entry: a chain of folders, and one
// look at each item by its folder's descriptor. Internal to Foundation.
//
// For each folder on the way down a frame holds the caller's view of it. The
// chain knows the place of the walk and lists the folders. When a folder cannot
// be found again on the way up, it ends there with an error, and the walk goes
// on above it.
//
// When a walk visits everything and has processors for it, several threads read
// its upper levels ahead: a frame there takes its items from batches, and the
// chain never opens its folder. Sequence and fields are the same.
#pragma once

#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Walking/FTS.h"
#include "Foundation/Walking/POSIX/FolderChain.h"
#include "Foundation/Walking/POSIX/ReadAhead.h"

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
  // The most descriptors of one walk that does not read ahead. One of them is for
  // the root, one only for the time of a move. Fewer when the process runs out.
  static constexpr std::size_t mostDescriptors = 16;

  // With fewer than two processors nothing is read ahead: the walk stays on its
  // caller's thread. May wait for its share of the descriptors.
  HierarchyStream(const std::string &path, int options, const FTSSieve *sieve, unsigned processors);
  ~HierarchyStream() override { closeAll(); }
  HierarchyStream(const HierarchyStream &) = delete;
  HierarchyStream &operator=(const HierarchyStream &) = delete;

  FTSEntry *read() override;
  int failure() const override { return failure_; }
  void set(FTSEntry &entry, FTSInstruction instruction) override;
  void close() override { closeAll(); }

private:
  enum class Stage : std::uint8_t {
    Announced, // returned as D, not opened
    Open,      // its items are being returned
    Left,      // returned for the second time
  };

  struct Frame {
    FTSEntry entry;
    std::size_t pathLength = 0;
    std::size_t nameLength = 0;
    Stage stage = Stage::Announced;
    bool skip = false;
    // For a folder that is read ahead: the batch in use and its next item.
    AheadBatch *batch = nullptr;
    std::size_t item = 0;
  };

  FTSEntry *step();
  FTSEntry *giveUp(int errnum);
  static void count(const FTSEntry &entry);
  Frame &top() { return frames_[depth_ - 1]; }
  FTSEntry *enterItem(const char *name, const FoundItem &found, AheadBatch *batch);
  FTSEntry *enter(const FoundItem &found, AheadBatch *batch, std::size_t nameLength);
  FTSEntry *push(const FTSStat &status, AheadBatch *batch, std::size_t nameLength);
  FTSEntry *nextItem();
  void passOver(const HeldItems &held);
  FTSEntry *leave(Frame &frame);
  FTSEntry *cannotRead(Frame &frame, int errnum);
  bool mayDescend(const Frame &frame) const;
  int descend();
  void pop();
  bool isOpenAncestor(const FolderID &id) const;
  void closeAll();

  const AheadItem *nextItemAhead(Frame &frame);
  FTSEntry *enterItemAhead(const AheadItem &item);
  FTSEntry *enterFolderAhead(const AheadItem &item);
  bool beginBatch(Frame &frame);
  void useBatch(Frame &frame);
  void startAhead(Frame &root);
  void readOnAlone(Frame &frame, std::int64_t position);
  StepOutcome beOpen();
  void dropBatch(Frame &frame);
  bool retreat();

  void appendName(const char *name, std::size_t length);
  void point(FTSEntry &entry, std::size_t pathLength, std::size_t nameLength);
  void followPath();

  std::optional<WalkShare> share_{std::in_place}; // while any descriptor is open
  DescriptorBudget::Share shareAhead_;
  int failure_ = 0;
  bool ended_ = false;
  const int options_;
  const ItemLook look_;
  bool started_ = false;
  std::string path_;                // of the entry returned last
  const char *pathStart_ = nullptr; // where the views of the frames point
  FTSEntry rootParent_;
  FTSEntry leaf_; // an item other than a folder
  // The first depth_ frames are in use. The others wait to be used again, since
  // entries must not move while a caller holds them.
  std::deque<Frame> frames_;
  std::size_t depth_ = 0;
  FolderChain chain_; // the folders of the frames in use
  std::unordered_set<FolderID, FolderIDHash> deepAncestors_;
  std::unique_ptr<ReadAhead> ahead_; // null for a walk alone
  bool retreated_ = false;           // nothing more is read ahead
};

} // namespace NS
