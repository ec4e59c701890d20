// Files that share their data.
#pragma once

#include <cstdint>

#define CLONE_NOFOLLOW 0x0001
#define CLONE_NOOWNERCOPY 0x0002
#define CLONE_ACL 0x0004

int fclonefileat(int source, int folder, const char *path, std::uint32_t flags);
