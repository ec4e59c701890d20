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
  // Larger files read as FileReadTooLargeError; in bytes. A path that holds a
  // NUL byte is an error.
  static constexpr std::size_t sizeLimit = 16u << 20;

  virtual ~FileContents() = default;
  static FileContents &shared();
  static FileContents *exchangeShared(FileContents *replacement);

  // The bytes of a regular file, links followed. Never waits on a FIFO and
  // never reads a device.
  virtual std::optional<std::string> dataWithContentsOfFile(const std::string &path,
                                                            ErrorSlot error) = 0;

  // Replaces the file at the path as a whole: the data goes to a new file in
  // the same folder, which is synced, given the owner, the mode, the access list
  // and the other extended attributes of the former file, and renamed over it.
  // A list or attribute that the volume has no room for is left out, and then
  // nobody is let in whom the former file kept out; so are attributes that vouch
  // for the former data. On failure the former file is as it was and nothing
  // else is left in the folder; what a killed process left there goes with the
  // next replacement. A link at the path is replaced, not followed, by a file
  // that takes its owner and the rest from the link's target.
  virtual bool writeToFileAtomically(const std::string &path, std::string_view data,
                                     ErrorSlot error) = 0;

  // The same file as text: bytes that are no UTF-8 read as
  // FileReadCorruptFileError.
  std::optional<std::string> stringWithContentsOfFile(const std::string &path, ErrorSlot error);
};

// Whether a file could not be read by a limit of this process alone: the size
// limit, its memory, its descriptors. The file may be all right then.
bool isLimitOfThisProcess(const Error &error);

} // namespace NS
