// Access lists and extended attributes by the platform's own copying call.
#include "Foundation/Files/POSIX/AttributeCopy.h"

#include <cerrno>
#include <copyfile.h>
#include <sys/stat.h>

namespace NS {

// An access list may deny rights here that the mode grants. So a copy that loses the
// list gives access to its owner alone.
int copyAttributes(int source, int target, CopiedData, mode_t &mode, LeftOut &leftOut) {
  if (::fcopyfile(source, target, nullptr, COPYFILE_XATTR) != 0) {
    if (!mayBeLeftOut(errno))
      return errno;
    leftOut.note("the attributes", errno);
  }
  if (::fcopyfile(source, target, nullptr, COPYFILE_ACL) != 0) {
    leftOut.note("the access list", errno);
    mode &= ~static_cast<mode_t>(S_IRWXG | S_IRWXO);
  }
  return 0;
}

} // namespace NS
