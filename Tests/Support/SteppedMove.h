// A move to another volume whose steps a test takes one at a time.
#pragma once

#include "Foundation/Trees/POSIX/TreeMove.h"
#include "Support/ScratchFolder.h"

#include <string>

namespace kwtest {

// A move of "tree" to "other/tree", step by step.
class SteppedMove {
public:
  explicit SteppedMove(const ScratchFolder &scratch)
      : srcPath_(scratch.path("tree")), dstPath_(scratch.path("other/tree")) {
    static_cast<void>(NS::locateItem(srcPath_, source_));
    static_cast<void>(NS::locateItem(dstPath_, target_));
  }
  NS::MoveAcross *operator->() { return &move_; }
  NS::MoveAcross &operator*() { return move_; }

private:
  std::string srcPath_, dstPath_;
  NS::ItemLocation source_, target_;
  NS::MoveAcross move_{source_, srcPath_, target_, dstPath_};
};

} // namespace kwtest
