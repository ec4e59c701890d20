// An item's times and its hidden flag, read from its status and from the
// system's index.
//
// All block; several threads may call them at once. Times are whole seconds
// since 1970, negative before; 0 when there is no time. They follow links. The
// receiver is the first argument.
#pragma once

#include "Foundation/Trees/FileManager.h"
#include "Foundation/Values/Date.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kw {

std::int64_t statCreationTimeAtPath(NS::FileManager &manager,
                                    const std::optional<std::string> &path);
std::int64_t statModificationTimeAtPath(NS::FileManager &manager,
                                        const std::optional<std::string> &path);
// Returns the date of the last use in the index, else the index's date of the
// last change of the content, else the time of the last access.
std::int64_t statAccessTimeAtPath(NS::FileManager &manager, const std::optional<std::string> &path);
// The same as a date, from the shared manager. Never null.
std::shared_ptr<NS::Date> lastAccessDateAtPath(NS::FileManager &manager,
                                               const std::optional<std::string> &path);

// Tells whether the hidden flag is set; a leading dot does not count. A failure
// is logged and counts as not hidden.
bool isFileHidden(NS::FileManager &manager, const std::string &path);

} // namespace kw
