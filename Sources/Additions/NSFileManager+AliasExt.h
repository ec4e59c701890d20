// Follows aliases and links to the item that they stand for, and tells the
// kinds of folders apart.
//
// Both block; both may run on several threads at once. The receiver is the
// first argument.
#pragma once

#include "Foundation/FileManager.h"

#include <string>

namespace kw {

enum KWFolderType : unsigned {
  KWFolderTypeOther = 0,   // an ordinary folder, or what could not be examined
  KWFolderTypePackage = 1, // of no kind below
  KWFolderTypeApplication = 2,
  KWFolderTypePhotoLibrary = 3,
  KWFolderTypeMigratedPhotoLibrary = 4,
  KWFolderTypePBLbLibrary = 5,
  KWFolderTypeApLibrary = 6, // and any package below a ".approject" folder
  KWFolderTypeITunesLibrary = 7,
  KWFolderTypePhotosLibrary = 8,
};

// The path of the item that the path stands for, or the path itself. Of a link
// one level is followed, and its destination comes as the link stores it: a
// relative one counts from the process's working folder. A link to nothing and
// an item that cannot be examined are logged.
std::string resolvedOriginalPath(NS::FileManager &manager, const std::string &path);

// By extension first, then by the platform's registry of applications; without
// a registry everything else is KWFolderTypeOther.
KWFolderType folderTypeAtPath(NS::FileManager &manager, const std::string &path);

} // namespace kw
