// Each host's part of the standard folders: its column of the table and the
// folders that the table's places are relative to.
//
// Thread-safe.
#pragma once

#include "Foundation/POSIX/StandardFolderTable.h"

#include <optional>

namespace NS::host {

FolderHost folderHost();
// The folder of a base other than Root and Home; nothing where there is none.
// UserDirectory is that of the directory asked for.
std::optional<std::string> folderOfBase(FolderBase base, SearchPathDirectory directory);
std::string temporaryDirectory();

// The variable of the environment when it is an absolute path.
std::optional<std::string> absolutePathInEnvironment(const char *variable);

} // namespace NS::host
