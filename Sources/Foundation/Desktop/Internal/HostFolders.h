// Each host's part of the standard folders: its column of the table and the
// folders that the table's places are relative to.
//
// Thread-safe.
#pragma once

#include "Foundation/Desktop/Internal/StandardFolderTable.h"

#include <optional>

namespace NS::host {

// The column of the table that this host uses.
FolderHost folderHost();
// The folder of a base other than Root and Home; empty if there is none. For
// UserDirectory it is the user's folder of the requested kind.
std::optional<std::string> folderOfBase(FolderBase base, SearchPathDirectory directory);
// As StandardFolders::temporaryDirectory.
std::string temporaryDirectory();

// The value of the environment variable if it is an absolute path.
std::optional<std::string> absolutePathInEnvironment(const char *variable);

} // namespace NS::host
