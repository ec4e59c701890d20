// Folders for both hosts' bulk attributes.
#include "Foundation/Files/BulkAttributes.h"

#include <fcntl.h>
#include <unistd.h>

namespace NS {

int BulkAttributes::openFolder(const char *path) {
  return ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

void BulkAttributes::closeFolder(int descriptor) {
  ::close(descriptor);
}

} // namespace NS
