// For bodies of the seam only.
#pragma once

namespace NS {

// From now on the calling thread gets the processor and the disk when nobody
// else wants them. Where the host refuses, the thread stays as it is.
void takeBackgroundPriority();

} // namespace NS
