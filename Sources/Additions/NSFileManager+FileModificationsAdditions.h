// Removal, unlocking, truncation and moving of what ordinary means cannot
// touch: the file operations that the agent serves.
//
// All block until done, keep no state and may run on several threads at once.
// Nothing is thrown; failures are logged as each comment says. The receiver
// is the first argument. When the current progress is cancelled, each stops at
// its next item and fails with UserCancelledError, leaving what a failure there
// would leave.
#pragma once

#include "Foundation/FileManager.h"

#include <optional>
#include <string>

namespace kw {

// Clears the owner's and the system's immutable flags of the item (through a
// final link) and, recursively, of all beneath it; never descends through a
// link. Best effort: a flag that cannot be cleared is logged and passed over.
void tryToUnlockFileIfNeeded(NS::FileManager &manager, const std::string &path, bool recursively);

// Removes the item with all beneath it; when that fails, unlocks the parent
// folder and the whole item and tries once more. An item that is already gone
// counts as removed. The slot gets the last error seen, which is the first
// attempt's when the second succeeded: decide by the result alone.
bool removeFileAtPath(NS::FileManager &manager, const std::string &path, NS::ErrorSlot error);

// Overwrites each file of the item once and removes it. Only the item's own
// flags are cleared first. On failure the slot gets an error of
// kSecureRemoveErrorDomain whose code is what the platform call returned; a
// nil path is logged and leaves the slot alone.
bool securelyRemoveFileAtPath(NS::FileManager &manager, const std::optional<std::string> &path,
                              NS::ErrorSlot error);

// Cuts an existing file to length zero without unlocking it. False for a
// folder, a missing item and one that cannot be written.
bool truncateFileAtPath(NS::FileManager &manager, const std::string &path);

// Removes every child of a folder, hidden ones included, and keeps the folder.
// All children are attempted; true when all are gone.
bool removeContentsOfDirectoryAtPath(NS::FileManager &manager, const std::string &path);

// Moves an item to its full new path, after unlocking its parent, itself and
// the destination's parent (not what lies inside), and making missing parents.
// No destination, or one without a folder part, means the Trash. A destination
// equal to the folder that holds the source is success without any move. An
// existing destination fails; the slot gets the platform's error.
bool advancedMoveItemAtPath(NS::FileManager &manager, const std::string &srcPath,
                            const std::optional<std::string> &dstPath, NS::ErrorSlot error);

// The plain move with two switches: make the destination's missing parents,
// and remove what stands at the destination first (without unlocking; it stays
// removed when the move then fails). Works through the shared manager, whatever
// the receiver. Each failing step is logged and its error passed out.
bool moveItemAtPath(NS::FileManager &manager, const std::string &srcPath,
                    const std::string &dstPath, bool createDstIntermediatePath, bool removeDstPath,
                    NS::ErrorSlot error);

} // namespace kw
