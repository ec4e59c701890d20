// Folders by getdents64 and statx.
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <cerrno>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace NS::foldercalls {

const int lookFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

long list(int folder, void *buffer, std::size_t size) {
  return ::syscall(SYS_getdents64, folder, buffer, size);
}

int identify(int item, FolderIdentity &identity) {
  struct statx found;
  if (::statx(item, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO | STATX_MNT_ID, &found) != 0)
    return errno;
  identity.id = {::makedev(found.stx_dev_major, found.stx_dev_minor), found.stx_ino};
  bool isNumbered = (found.stx_mask & STATX_MNT_ID) != 0;
  identity.mount = isNumbered ? found.stx_mnt_id : identity.id.device;
  return 0;
}

} // namespace NS::foldercalls
