// Aliases, links and kinds of folders.
#include "Additions/NSFileManager+AliasExt.h"

#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/LaunchServices.h"
#include "Foundation/Text/PathUtilities.h"

#include <algorithm>
#include <array>

namespace kw {
namespace {

// Aliases of cloud items are rare, and chains of them rarer; a chain this long
// is a circle.
constexpr int longestCloudChain = 32;

std::string cloudOriginal(std::string path) {
  for (int hops = 0; hops < longestCloudChain; ++hops) {
    auto next = NS::Aliases::shared().iCloudAliasPathForPath(path);
    if (!next)
      break;
    path = std::move(*next);
  }
  return path;
}

std::string linkDestination(NS::FileManager &manager, const std::string &path) {
  auto destination = manager.destinationOfSymbolicLinkAtPath(path, nullptr);
  if (destination && manager.fileExistsAtPath(*destination))
    return *destination;
  NS::Log("File not exists at destination %@", destination);
  return path;
}

KWFolderType typeByExtension(const std::string &path) {
  std::string extension = NS::pathExtension(path);
  if (extension == "photolibrary")
    return KWFolderTypePhotoLibrary;
  if (extension == "photoslibrary")
    return KWFolderTypePhotosLibrary;
  if (extension == "migratedphotolibrary")
    return KWFolderTypeMigratedPhotoLibrary;
  return KWFolderTypeOther;
}

KWFolderType typeOfPlainFolder(const std::string &path) {
  static constexpr std::array markers{"iTunes Library.xml", "iTunes Music Library.xml",
                                      "iTunes Library.itl"};
  bool isLibrary = std::any_of(markers.begin(), markers.end(), [&](const char *name) {
    return NS::FileManager::defaultManager().fileExistsAtPath(
        NS::stringByAppendingPathComponent(path, name));
  });
  return isLibrary ? KWFolderTypeITunesLibrary : KWFolderTypeOther;
}

KWFolderType typeOfPackage(const std::string &path) {
  // The second alternative has no end, so every item below such a project
  // counts as a library.
  static const auto library = NS::RegularExpression::regularExpressionWithPattern(
      "(\\.aplibrary$)|(\\.approject)", NS::RegularExpressionNone);
  return isMatchedByRegex(path, library.get()) ? KWFolderTypeApLibrary : KWFolderTypePackage;
}

} // namespace

std::string resolvedOriginalPath(NS::FileManager &manager, const std::string &path) {
  std::string original = cloudOriginal(path);
  std::optional<NS::Error> error;
  auto attributes = manager.attributesOfItemAtPath(original, &error);
  if (!attributes) {
    NS::Log("Error resolving path (%@): %@", original, error);
    return original;
  }
  if (attributes->type == NS::FileType::SymbolicLink)
    return linkDestination(manager, original);
  return NS::Aliases::shared().resolveAliasFile(original).value_or(original);
}

KWFolderType folderTypeAtPath(NS::FileManager &, const std::string &path) {
  KWFolderType type = typeByExtension(path);
  if (type != KWFolderTypeOther)
    return type;
  NS::LSItemInfo info;
  if (NS::LaunchServices::shared().copyItemInfo(
          path, NS::LSRequestTypeCreator | NS::LSRequestBasicFlagsOnly, info) != 0)
    return KWFolderTypeOther;
  if (info.fileType == "APPL")
    return KWFolderTypeApplication;
  if (info.fileType == "PBLb")
    return KWFolderTypePBLbLibrary;
  if (info.fileType == "iPlb")
    return KWFolderTypePhotoLibrary;
  return info.flags & NS::LSItemInfoIsPackage ? typeOfPackage(path) : typeOfPlainFolder(path);
}

} // namespace kw
