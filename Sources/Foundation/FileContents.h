// Whole files in and out. A class, so that a test can put its own contents
// where the contract fixes a path.
//
// Keeps no state; may be used from any thread. Every call blocks until done.
#pragma once

#include "Foundation/Error.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace NS {

class FileContents {
public:
  // Larger files read as FileReadTooLargeError; in bytes.
  static constexpr std::size_t sizeLimit = 16u << 20;

  virtual ~FileContents() = default;
  static FileContents &shared();
  static FileContents *exchangeShared(FileContents *replacement);

  // The bytes of a regular file, links followed. Never waits on a FIFO and
  // never reads a device.
  virtual std::optional<std::string> dataWithContentsOfFile(const std::string &path,
                                                            ErrorSlot error) = 0;

  // Replaces the file at the path as a whole: the data goes to a new file in
  // the same folder, which is synced, given the mode and the owner of the
  // former file, and renamed over it. On failure the former file is as it was
  // and nothing else is left in the folder. A link at the path is replaced, not
  // followed.
  virtual bool writeToFileAtomically(const std::string &path, std::string_view data,
                                     ErrorSlot error) = 0;

  // The same file as text: bytes that are no UTF-8 read as
  // FileReadCorruptFileError.
  std::optional<std::string> stringWithContentsOfFile(const std::string &path, ErrorSlot error);
};

} // namespace NS
