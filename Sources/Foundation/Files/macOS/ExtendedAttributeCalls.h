// Extended attributes of the system library, whose header the cross compiler
// lacks.
#pragma once

#if __has_include(<sys/xattr.h>)
#include <sys/xattr.h>
#else
#include <sys/types.h>

extern "C" ssize_t listxattr(const char *path, char *names, size_t size, int options);
#define XATTR_NOFOLLOW 0x0001
#endif
