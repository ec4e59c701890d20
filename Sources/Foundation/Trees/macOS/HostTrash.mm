// The Trash of the platform's file manager.
#include "Foundation/Trees/Internal/HostTrash.h"

#include "Foundation/Base/macOS/Platform/Foundation.h"

#include <cerrno>

namespace NS {
namespace {

Error errorOf(NSError *error, const std::string &path) {
  NSData *domain = [[error domain] dataUsingEncoding:NSUTF8StringEncoding];
  if (!domain)
    return fileError(EIO, path, FileAccess::Writing);
  return {std::string(static_cast<const char *>([domain bytes]), [domain length]),
          static_cast<std::int64_t>([error code]), userInfoWith(FilePathErrorKey, path)};
}

} // namespace

std::optional<Error> host::moveToTrash(const std::string &resolved, const std::string &path) {
  @autoreleasepool {
    NSString *text = [NSString stringWithUTF8String:resolved.c_str()];
    if (!text)
      return fileError(EILSEQ, path, FileAccess::Writing);
    NSURL *url = [NSURL fileURLWithPath:text isDirectory:NO];
    NSError *error = nil;
    if ([[NSFileManager defaultManager] trashItemAtURL:url resultingItemURL:nullptr error:&error])
      return std::nullopt;
    return errorOf(error, path);
  }
}

} // namespace NS
