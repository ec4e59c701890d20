// Copying the attributes of open items.
#pragma once

#include <cstdint>

#define COPYFILE_ACL (1u << 0)
#define COPYFILE_STAT (1u << 1)
#define COPYFILE_XATTR (1u << 2)

typedef struct kw_copyfile_state *copyfile_state_t;

int fcopyfile(int source, int target, copyfile_state_t state, std::uint32_t flags);
