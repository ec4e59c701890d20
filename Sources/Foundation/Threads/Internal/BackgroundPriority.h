// The priority of work without a waiting user. Internal to Foundation.
#pragma once

namespace NS {

// Lowers the calling thread's priority for the processor and the disk to the
// lowest. When the host refuses, the thread keeps its priority.
void takeBackgroundPriority();

} // namespace NS
