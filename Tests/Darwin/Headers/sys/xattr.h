// Extended attributes with the platform's options.
#pragma once

#include <sys/types.h>

#define XATTR_NOFOLLOW 0x0001

// Under another name, since this host has a call of that name too.
extern "C" ssize_t listxattr(const char *path, char *names, size_t size,
                             int options) __asm__("darwin_listxattr");
