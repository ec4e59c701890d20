// The limit of descriptors, after setrlimit(2).
#define KW_DARWIN_SHIM
#include "Darwin/Headers/sys/resource.h"
#include "Darwin/Shim.h"

#include <cerrno>

using kwtest::darwin::shim;

int darwin_getrlimit(int /*resource*/, struct rlimit *limit) {
  *limit = {.rlim_cur = shim().openFiles, .rlim_max = shim().mostOpenFiles};
  return 0;
}

// The present limit must be a number, even if the hard one is not.
int darwin_setrlimit(int /*resource*/, const struct rlimit *limit) {
  if (limit->rlim_cur == RLIM_INFINITY || limit->rlim_cur > limit->rlim_max) {
    errno = EINVAL;
    return -1;
  }
  shim().openFiles = limit->rlim_cur;
  shim().mostOpenFiles = limit->rlim_max;
  return 0;
}
