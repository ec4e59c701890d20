// Renaming without replacing.
#pragma once
#pragma GCC system_header
#include_next <stdio.h>

#undef RENAME_EXCL
#define RENAME_EXCL 0x00000004u

int renameatx_np(int folder, const char *path, int newFolder, const char *newPath, unsigned flags);
