// A removal that asks and tells, and removes nothing.
#include "Darwin/RemovalShim.h"

#include "Foundation/Trees/macOS/Platform/RemoveFile.h"

#include <cerrno>
#include <map>

struct _removefile_state {
  std::map<std::uint32_t, const void *> values;

  int call(std::uint32_t callbackKey, std::uint32_t contextKey, const char *path) {
    auto callback =
        reinterpret_cast<removefile_callback_t>(const_cast<void *>(values[callbackKey]));
    return callback ? callback(this, path, const_cast<void *>(values[contextKey]))
                    : int{REMOVEFILE_PROCEED};
  }
};

namespace kwtest::darwin {

Removals &removals() {
  static Removals instance;
  return instance;
}

} // namespace kwtest::darwin

using kwtest::darwin::removals;

removefile_state_t removefile_state_alloc(void) {
  if (!removals().hasMemory)
    return nullptr;
  ++removals().states;
  return new _removefile_state;
}

int removefile_state_free(removefile_state_t state) {
  --removals().states;
  delete state;
  return 0;
}

int removefile_state_set(removefile_state_t state, std::uint32_t key, const void *value) {
  if (static_cast<int>(key) == removals().refusedKey) {
    errno = EINVAL;
    return -1;
  }
  state->values[key] = value;
  return 0;
}

int removefile(const char *path, removefile_state_t state, removefile_flags_t flags) {
  removals().calls.push_back({path, flags});
  for (const std::string &item : removals().items) {
    if (state->call(REMOVEFILE_STATE_CONFIRM_CALLBACK, REMOVEFILE_STATE_CONFIRM_CONTEXT,
                    item.c_str()) == REMOVEFILE_STOP) {
      errno = removals().errorOfStop;
      return errno == 0 ? 0 : -1;
    }
    if (removals().beforeRemoval)
      removals().beforeRemoval(item);
    removals().removed.push_back(item);
    state->call(REMOVEFILE_STATE_STATUS_CALLBACK, REMOVEFILE_STATE_STATUS_CONTEXT, item.c_str());
  }
  errno = removals().error;
  return errno == 0 ? 0 : -1;
}
