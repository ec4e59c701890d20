// Reads and writes whole files. A class, so that a test can supply the contents
// of a path that the contract fixes.
//
// Keeps no state; any thread may use it. Every call blocks until done.
#pragma once

#include "Foundation/Base/Error.h"
#include "Foundation/Base/SharedInstance.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace NS {

class FileContents : public SharedInstance<FileContents> {
public:
  // Larger files read as FileReadTooLargeError; in bytes. A path that holds a
  // NUL byte is an error.
  static constexpr std::size_t sizeLimit = 16u << 20;

  virtual ~FileContents() = default;
  static FileContents &real();

  // The bytes of a regular file; follows links. Opens no FIFO, socket or device,
  // and so neither waits for nor wakes any. Empty, with a reading error, on
  // failure.
  virtual std::optional<std::string> dataWithContentsOfFile(const std::string &path,
                                                            ErrorSlot error) = 0;

  // The same for callers to whom a missing file is as good as an unreadable one:
  // empty for either. Throws ResourceShortage when this process lacks the
  // descriptors or the memory to read the file now.
  std::optional<std::string> dataIfReadable(const std::string &path);

  // Replaces the file at the path as a whole. Writes the data to a new file in
  // the same folder, syncs it, gives it the owner, the mode, the access list
  // and the other extended attributes of the former file, and renames it over
  // that. Leaves out a list or attribute for which the volume has no room, and
  // then opens access to no further user; also leaves out attributes that vouch
  // for the former data. On failure the former file is unchanged and the folder
  // holds no leftover; the next replacement removes the leftover of a killed
  // process. A link at the path is replaced, not followed, by a file that takes
  // its owner and the rest from the link's target.
  virtual bool writeToFileAtomically(const std::string &path, std::string_view data,
                                     ErrorSlot error) = 0;

  // The same file as text: invalid UTF-8 reads as FileReadCorruptFileError.
  std::optional<std::string> stringWithContentsOfFile(const std::string &path, ErrorSlot error);
};

// Tells whether a file could not be read because of a limit of this process: the
// size limit, its memory, its descriptors. The file itself may be intact.
bool isLimitOfThisProcess(const Error &error);

} // namespace NS
