// An open descriptor as an object. Every descriptor is close-on-exec from its
// creation.
//
// Not thread-safe. Reading and writing block. The handle calls its readability
// handler on a thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

class FileHandle {
public:
  // Called whenever data can be read, and once more when the other end has
  // closed; not again once a call has read the end. An exception that leaves it
  // is logged and ends the calls.
  using ReadabilityHandler = std::function<void(FileHandle &)>;

  virtual ~FileHandle() = default;

  // Opens an existing regular file for reading and writing; null on failure. Opens
  // no other item, since opening a device or a FIFO has effects. Never waits.
  static std::shared_ptr<FileHandle> fileHandleForUpdatingAtPath(const std::string &path);
  // Takes over an open descriptor, and makes it close-on-exec.
  static std::shared_ptr<FileHandle> fileHandleWithDescriptor(int descriptor);

  // Raises FileHandleOperationException when the file cannot be truncated or
  // the handle is closed. The offset is in bytes.
  virtual void truncateFileAtOffset(std::uint64_t offset) = 0;
  // All bytes until the end of the file; raises on a read error.
  virtual std::string readDataToEndOfFile() = 0;
  // Returns the data that can be read now, and waits for the first byte; empty
  // at the end. Within a readability handler also empty when the handler is
  // being removed and no data is ready: a removal never waits for data that may
  // not come.
  virtual std::string availableData() = 0;
  // Reads and drops data as availableData would return it, at most 64 KiB. It
  // needs no memory, so that a writer can go on when there is none.
  virtual void discardAvailableData() = 0;
  // Writes all data; raises when the reader is gone or the disk is full. The
  // process gets no SIGPIPE.
  virtual void writeData(std::string_view data) = 0;
  // A second call does nothing.
  virtual void closeFile() = 0;
  // The descriptor, -1 once closed.
  virtual int fileDescriptor() const = 0;
  // A null handler removes the former one and returns only when no call of it
  // is under way (unless called from the handler itself). Raises when there is
  // no descriptor or thread left for it, or the handle is closed.
  virtual void setReadabilityHandler(ReadabilityHandler handler) = 0;
};

} // namespace NS
