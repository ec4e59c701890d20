// The file operations that the agent serves: removal, unlocking, truncation and
// moving of items that resist ordinary means.
//
// All block until done, keep no state, and several threads may call them at
// once. They throw nothing and log failures as each comment says. The receiver
// is the first argument. When the current progress is cancelled, each stops at
// its next item, fails with UserCancelledError, and leaves the same state as a
// failure there.
#pragma once

#include "Foundation/Trees/FileManager.h"

#include <optional>
#include <string>

namespace kw {

// Clears the owner's and the system's immutable flags of the item (through a
// final link) and, recursively, of all items beneath it. Never descends through
// a link. Best effort: it logs a flag that it cannot clear and goes on.
void tryToUnlockFileIfNeeded(NS::FileManager &manager, const std::string &path, bool recursively);

// Removes the item with all items beneath it. When that fails, unlocks the
// parent folder and the whole item and tries once more. A missing item counts
// as removed. The slot gets the last error seen, which is the first attempt's
// when the second succeeded: decide by the result alone.
bool removeFileAtPath(NS::FileManager &manager, const std::string &path, NS::ErrorSlot error);

// Overwrites each file of the item once and removes it. First clears only the
// item's own flags. On failure the slot gets an error of
// kSecureRemoveErrorDomain with the return value of the platform call as its
// code. Logs a nil path and leaves the slot alone.
bool securelyRemoveFileAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                              NS::ErrorSlot error);

// Cuts an existing file to length zero without unlocking it. False for a
// folder, a missing item and an item that cannot be written.
bool truncateFileAtPath(NS::FileManager &manager, const std::string &path);

// Removes every child of a folder, hidden ones included, and keeps the folder.
// Attempts all children; true when all are gone.
bool removeContentsOfDirectoryAtPath(NS::FileManager &manager, const std::string &path);

// Moves an item to its full new path. First unlocks its parent, itself and the
// destination's parent (not the items inside), and makes missing parents. No
// destination, or one without a folder part, means the Trash. A destination
// equal to the folder that holds the source is success without any move. An
// existing destination fails; the slot gets the platform's error.
bool advancedMoveItemAtPath(NS::FileManager &manager, const std::string &srcPath,
                            const std::optional<std::string> &dstPath, NS::ErrorSlot error);

// Moves an item, with two switches: make the destination's missing parents, and
// first remove the item at the destination (without unlocking; it stays removed
// when the move then fails). Works through the shared manager for any receiver.
// Logs each failing step and passes its error out.
bool moveItemAtPath(NS::FileManager &manager, const std::string &srcPath,
                    const std::string &dstPath, bool createDstIntermediatePath, bool removeDstPath,
                    NS::ErrorSlot error);

} // namespace kw
