// The registry of applications by LSCopyItemInfoForURL, Finder aliases by
// FSResolveAliasFile.
#include "Foundation/Desktop/LaunchServices.h"

#include "Foundation/Files/URL.h"
#include "Foundation/Values/macOS/CoreFoundationValues.h"

namespace NS {
namespace {

static_assert(LSRequestTypeCreator == kLSRequestTypeCreator);
static_assert(LSRequestBasicFlagsOnly == kLSRequestBasicFlagsOnly);
static_assert(LSItemInfoIsPackage == kLSItemInfoIsPackage);
static_assert(LSUnknownError == kLSUnknownErr);

// The four characters of a type, first the highest byte; none for no type.
std::string textOfType(OSType type) {
  std::string text;
  for (int shift = 24; type != 0 && shift >= 0; shift -= 8)
    text += static_cast<char>(type >> shift & 0xff);
  return text;
}

class PlatformRegistry final : public LaunchServices {
public:
  std::int32_t copyItemInfo(const std::string &path, std::uint32_t requestedInfo,
                            LSItemInfo &info) override {
    AutoreleasePool pool;
    Owned<CFURLRef> url = platformURL(path, URL::fileURLWithPath(path).hasDirectoryPath());
    if (!url)
      return LSUnknownError;
    LSItemInfoRecord record{};
    OSStatus status = ::LSCopyItemInfoForURL(url.get(), requestedInfo, &record);
    if (status == noErr)
      info = {record.flags, textOfType(record.filetype)};
    return status;
  }
};

class PlatformAliases final : public Aliases {
public:
  // The platform has no such lookup.
  std::optional<std::string> iCloudAliasPathForPath(const std::string & /*path*/) override {
    return std::nullopt;
  }

  std::optional<std::string> resolveAliasFile(const std::string &path) override {
    AutoreleasePool pool;
    FSRef item;
    Boolean leadsToFolder = false;
    Boolean wasAlias = false;
    if (!findItem(path, item) ||
        ::FSResolveAliasFile(&item, true, &leadsToFolder, &wasAlias) != noErr || !wasAlias)
      return std::nullopt;
    return pathOf(Owned(::CFURLCreateFromFSRef(kCFAllocatorDefault, &item)).get());
  }

private:
  static bool findItem(const std::string &path, FSRef &item) {
    if (path.find('\0') != std::string::npos)
      return false;
    Owned<CFStringRef> text = platformString(path);
    if (!text)
      return false;
    Owned url(::CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.get(), kCFURLPOSIXPathStyle,
                                              false));
    return url && ::CFURLGetFSRef(url.get(), &item);
  }
};

} // namespace

LaunchServices &LaunchServices::real() {
  return lastingInstance<PlatformRegistry>();
}

Aliases &Aliases::real() {
  return lastingInstance<PlatformAliases>();
}

} // namespace NS
