// The part of launchd's protocol that the macOS bodies use.
#pragma once

#define LAUNCH_KEY_GETJOB "GetJob"

typedef struct kw_launch_data *launch_data_t;
typedef enum {
  LAUNCH_DATA_DICTIONARY = 1,
  LAUNCH_DATA_STRING = 7,
  LAUNCH_DATA_ERRNO = 9,
} launch_data_type_t;

extern "C" {
launch_data_t launch_data_alloc(launch_data_type_t type);
launch_data_t launch_data_new_string(const char *text);
bool launch_data_dict_insert(launch_data_t dictionary, launch_data_t value, const char *key);
launch_data_type_t launch_data_get_type(launch_data_t data);
void launch_data_free(launch_data_t data);
launch_data_t launch_msg(launch_data_t request);
}
