// Opening a link itself, and the further questions of fcntl.
#pragma once
#pragma GCC system_header
#include_next <fcntl.h>

// Such a descriptor serves for a link as an open item does.
#define O_SYMLINK (O_PATH | O_NOFOLLOW)

#define F_GETPATH 50
#define F_FULLFSYNC 51

int darwin_fcntl(int descriptor, int command, void *argument = nullptr);

#ifndef KW_DARWIN_SHIM
#define fcntl darwin_fcntl
#endif
