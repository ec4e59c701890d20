// A one-way channel between two processes. Both ends are close-on-exec, and
// close with their last owner. As thread-safe as file handles.
#pragma once

#include "Foundation/Descriptors/FileHandle.h"

#include <memory>

namespace NS {

class Pipe {
public:
  // Throws ResourceShortage when no descriptor is left.
  static std::shared_ptr<Pipe> pipe();
  // A pipe that discards written data and has nothing to read: for a stream of
  // a program without a listener. Throws as pipe does; raises
  // InternalInconsistencyException on a host without that device.
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
