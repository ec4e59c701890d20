// A removal that asks and tells, and removes nothing.
#include "Darwin/RemovalShim.h"

#include "Foundation/Trees/macOS/Platform/RemoveFile.h"

#include <algorithm>
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
  auto isConfirmed = [&](const std::string &item) {
    return state->call(REMOVEFILE_STATE_CONFIRM_CALLBACK, REMOVEFILE_STATE_CONFIRM_CONTEXT,
                       item.c_str()) != REMOVEFILE_STOP;
  };
  auto remove = [&](const std::string &item) {
    if (removals().beforeRemoval)
      removals().beforeRemoval(item);
    removals().removed.push_back(item);
    state->call(REMOVEFILE_STATE_STATUS_CALLBACK, REMOVEFILE_STATE_STATUS_CONTEXT, item.c_str());
  };
  auto stopped = [] {
    errno = removals().errorOfStop;
    return errno == 0 ? 0 : -1;
  };
  removals().calls.push_back({path, flags});
  const std::vector<std::string> &folders = removals().folders;
  for (const std::string &folder : folders)
    if (!isConfirmed(folder))
      return stopped();
  for (const std::string &item : removals().items) {
    if (!isConfirmed(item))
      return stopped();
    remove(item);
  }
  // A folder is confirmed before its contents, and removed after them.
  std::for_each(folders.rbegin(), folders.rend(), remove);
  errno = removals().error;
  return errno == 0 ? 0 : -1;
}
