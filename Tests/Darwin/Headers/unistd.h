// Calls on open items, and the errors of a removal.
#pragma once
#pragma GCC system_header
#include_next <unistd.h>

#define SYNC_VOLUME_FULLSYNC 0x01
#define SYNC_VOLUME_WAIT 0x02

int fsync_volume_np(int item, int flags);
int darwin_fchown(int item, uid_t owner, gid_t group);
int darwin_unlinkat(int folder, const char *path, int flags);

#ifndef KW_DARWIN_SHIM
#define fchown darwin_fchown
#define unlinkat darwin_unlinkat
#endif
