// The steps of making pipes and child processes that differ between hosts. Only
// the common part calls them.
//
// Thread-safe.
#pragma once

#include <spawn.h>
#include <sys/resource.h>
#include <sys/types.h>

namespace NS::descriptors::host {

// Makes a pipe with both ends close-on-exec as early as the host can do so.
// Returns 0, or -1 with errno set.
int makePipe(int (&ends)[2]);

// Gives the child its standard streams and no other descriptor. A stream of -1
// is this process's own. Returns 0 or an errno value.
int keepStandardStreamsAlone(posix_spawn_file_actions_t &actions, const int (&streams)[3]);

// Further flags of the host for posix_spawnattr_setflags.
short spawnFlags();

// Gives a child that was just started another limit of descriptors. If the host
// cannot do that, the child keeps this process's.
void setDescriptorLimit(pid_t child, const rlimit &limit);

// This process's environment; the caller holds its lock.
char **environment();

} // namespace NS::descriptors::host
