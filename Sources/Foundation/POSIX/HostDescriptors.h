// The steps of making pipes and child processes that each host has its own
// calls for. Used by the common part alone.
//
// Thread-safe.
#pragma once

#include <spawn.h>
#include <sys/resource.h>
#include <sys/types.h>

namespace NS::descriptors::host {

// The two ends of a new pipe, close-on-exec as early as the host can make them
// so. 0, or -1 with errno set.
int makePipe(int (&ends)[2]);

// Lets the child have its standard streams and no other descriptor. A stream
// that is given as -1 is this process's own. 0 or an errno value.
int keepStandardStreamsAlone(posix_spawn_file_actions_t &actions, const int (&streams)[3]);

// Further flags of the host for posix_spawnattr_setflags.
short spawnFlags();

// Gives a child that was just started another limit of descriptors. Where the
// host cannot, the child keeps this process's.
void setDescriptorLimit(pid_t child, const rlimit &limit);

// This process's environment; the caller holds its lock.
char **environment();

} // namespace NS::descriptors::host
