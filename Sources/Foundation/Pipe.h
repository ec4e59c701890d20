// A one-way channel between two processes; both ends are close-on-exec from
// creation and close when the last holder lets go.
#pragma once

#include "Foundation/FileHandle.h"

#include <memory>

namespace NS {

class Pipe {
public:
  // Raises InternalInconsistencyException when no descriptor is left.
  static std::shared_ptr<Pipe> pipe();
  // Drops what is written and has nothing to read: for a stream of a program
  // that nobody listens to. Raises as pipe does.
  static std::shared_ptr<Pipe> nullDevice();

  FileHandle &fileHandleForReading() { return *reading_; }
  FileHandle &fileHandleForWriting() { return *writing_; }

private:
  Pipe(std::shared_ptr<FileHandle> reading, std::shared_ptr<FileHandle> writing)
      : reading_(std::move(reading)), writing_(std::move(writing)) {}

  std::shared_ptr<FileHandle> reading_;
  std::shared_ptr<FileHandle> writing_;
};

} // namespace NS
