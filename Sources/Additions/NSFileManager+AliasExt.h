// Follows aliases and links to their originals, and tells the kinds of folders
// apart.
//
// Both block; several threads may call them at once. The receiver is the first
// argument.
#pragma once

#include "Foundation/Trees/FileManager.h"

#include <string>

namespace kw {

enum KWFolderType : unsigned {
  KWFolderTypeOther = 0,   // an ordinary folder, or an item that could not be examined
  KWFolderTypePackage = 1, // of none of the kinds below
  KWFolderTypeApplication = 2,
  KWFolderTypePhotoLibrary = 3,
  KWFolderTypeMigratedPhotoLibrary = 4,
  KWFolderTypePBLbLibrary = 5,
  KWFolderTypeApLibrary = 6, // and any package below a ".approject" folder
  KWFolderTypeITunesLibrary = 7,
  KWFolderTypePhotosLibrary = 8,
};

// Returns the path of the original, or the path itself. Follows one level of a
// link, and returns its destination as the link stores it: a relative one
// counts from the process's working folder. Logs a link to a missing item and
// an item that it cannot examine.
std::string resolvedOriginalPath(NS::FileManager &manager, const std::string &path);

// Decides by extension first, then by the platform's registry of applications.
// Without a registry every other folder is KWFolderTypeOther.
KWFolderType folderTypeAtPath(NS::FileManager &manager, const std::string &path);

} // namespace kw
