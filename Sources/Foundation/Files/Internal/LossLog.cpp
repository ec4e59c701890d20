// A last line says that the log is not complete.
#include "Foundation/Files/Internal/LossLog.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Text/PathUtilities.h"

namespace NS {

void LossLog::tell(const std::string &below, const std::string &fate) {
  if (linesLeft_ == 0)
    return;
  Log("%@ %@", stringByAppendingPathComponent(root_, below), fate);
  if (--linesLeft_ == 0)
    Log("The log has nothing more of the walk through %@.", root_);
}

} // namespace NS
