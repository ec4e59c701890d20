// removefile of the system library, whose header the cross compiler lacks.
#pragma once

#if __has_include(<removefile.h>)
#include <removefile.h>
#else
#include <cstdint>

extern "C" {
typedef struct _removefile_state *removefile_state_t;
typedef std::uint32_t removefile_flags_t;
typedef int (*removefile_callback_t)(removefile_state_t state, const char *path, void *context);

removefile_state_t removefile_state_alloc(void);
int removefile_state_free(removefile_state_t state);
int removefile_state_set(removefile_state_t state, std::uint32_t key, const void *value);
int removefile(const char *path, removefile_state_t state, removefile_flags_t flags);
}

enum : removefile_flags_t {
  REMOVEFILE_RECURSIVE = 1 << 0,
  REMOVEFILE_SECURE_1_PASS = 1 << 4,
};
enum : std::uint32_t {
  REMOVEFILE_STATE_CONFIRM_CALLBACK = 1,
  REMOVEFILE_STATE_CONFIRM_CONTEXT = 2,
  REMOVEFILE_STATE_STATUS_CALLBACK = 6,
  REMOVEFILE_STATE_STATUS_CONTEXT = 7,
};
enum { REMOVEFILE_PROCEED = 0, REMOVEFILE_STOP = 2 };
#endif
