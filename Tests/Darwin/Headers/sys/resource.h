// The limit of descriptors as the platform has it. The calls take the place of this
// host's, by their names.
#pragma once
#pragma GCC system_header
#include_next <sys/resource.h>

int darwin_getrlimit(int resource, struct rlimit *limit);
int darwin_setrlimit(int resource, const struct rlimit *limit);

// The shim itself uses this host's.
#ifndef KW_DARWIN_SHIM
#define getrlimit darwin_getrlimit
#define setrlimit darwin_setrlimit
#endif
