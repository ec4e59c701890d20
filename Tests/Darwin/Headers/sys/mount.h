// The status of a volume: where it is mounted.
#pragma once

struct statfs {
  char f_mntonname[1024];
};

extern "C" int statfs(const char *path, struct statfs *status) __asm__("darwin_statfs");
