// An item's times and its hidden flag, straight from its status and from the
// system's index.
//
// All block; all may run on several threads at once. Times are whole seconds
// since 1970, negative before; 0 when there is none to be had. Links are
// followed. The receiver is the first argument.
#pragma once

#include "Foundation/Date.h"
#include "Foundation/FileManager.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kw {

std::int64_t statCreationTimeAtPath(NS::FileManager &manager,
                                    const std::optional<std::string> &path);
std::int64_t statModificationTimeAtPath(NS::FileManager &manager,
                                        const std::optional<std::string> &path);
// The date of the last use by the index, else its date of the last change of
// the content, else the time of the last access.
std::int64_t statAccessTimeAtPath(NS::FileManager &manager, const std::optional<std::string> &path);
// The same as a date, asked of the shared manager. Never null.
std::shared_ptr<NS::Date> lastAccessDateAtPath(NS::FileManager &manager,
                                               const std::optional<std::string> &path);

// Whether the hidden flag is set; a leading dot hides nothing. A failure is
// logged and counts as not hidden.
bool isFileHidden(NS::FileManager &manager, const std::string &path);

} // namespace kw
