// Notes the attributes that a copy leaves out, on any host.
#include "Foundation/Files/POSIX/AttributeCopy.h"

#include "Foundation/Base/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace NS {

void LeftOut::note(std::string_view thing, int error) {
  if (++times > 1)
    return;
  what = thing;
  errnum = error;
}

void LeftOut::report(const std::string &copy) const {
  if (times > 0)
    Log("%@ does without what its volume cannot hold: %@ (error %d), %lld in all", copy, what,
        errnum, times);
}

bool mayBeLeftOut(int error) {
  constexpr std::array causes = {ENOTSUP, ENOSYS, EPERM, EACCES, EINVAL,
                                 ENOSPC,  EDQUOT, E2BIG, ERANGE, EOVERFLOW};
  return std::find(causes.begin(), causes.end(), error) != causes.end();
}

} // namespace NS
