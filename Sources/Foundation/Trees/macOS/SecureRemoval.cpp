// The platform's removefile. It calls back before an item, which may stop it, and
// after the item's removal; for a folder, before and after its contents.
#include "Foundation/Trees/SecureRemoval.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/macOS/Platform/RemoveFile.h"

#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <type_traits>
#include <utility>

namespace NS {
namespace {

static_assert(REMOVEFILE_RECURSIVE_FLAG == std::uint32_t{REMOVEFILE_RECURSIVE});
static_assert(REMOVEFILE_SECURE_1_PASS_FLAG == std::uint32_t{REMOVEFILE_SECURE_1_PASS});

// 0, or the errno value for a path that no removal takes.
int refusal(const std::string &path) {
  if (path.find('\0') != std::string::npos)
    return EINVAL;
  std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos)
    return path.empty() ? ENOENT : EBUSY;
  std::size_t slash = path.rfind('/', end);
  std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
  std::string name = path.substr(begin, end + 1 - begin);
  return name == "." || name == ".." ? EINVAL : 0;
}

// One removal and the progress of its request.
struct Removal {
  Progress &progress = Progress::current();
  std::uint64_t size = 0; // of the file that is removed next; 0 when none is
  bool wasStopped = false;
};

int beforeItem(removefile_state_t /*state*/, const char *path, void *context) {
  auto &removal = *static_cast<Removal *>(context);
  if (removal.progress.isCancelled()) {
    removal.wasStopped = true;
    return REMOVEFILE_STOP;
  }
  if (removal.progress.wantsPath())
    removal.progress.setPath(path);
  struct stat status;
  bool isFile = ::lstat(path, &status) == 0 && S_ISREG(status.st_mode);
  removal.size = isFile ? static_cast<std::uint64_t>(status.st_size) : 0;
  return REMOVEFILE_PROCEED;
}

int afterItem(removefile_state_t /*state*/, const char * /*path*/, void *context) {
  auto &removal = *static_cast<Removal *>(context);
  // A folder comes after its contents, and without another call before it.
  removal.progress.countItem(std::exchange(removal.size, 0));
  return REMOVEFILE_PROCEED;
}

struct FreeState {
  void operator()(removefile_state_t state) const { ::removefile_state_free(state); }
};
using State = std::unique_ptr<std::remove_pointer_t<removefile_state_t>, FreeState>;

bool callBack(removefile_state_t state, std::uint32_t callbackKey, removefile_callback_t callback,
              std::uint32_t contextKey, Removal &removal) {
  return ::removefile_state_set(state, callbackKey, reinterpret_cast<const void *>(callback)) ==
             0 &&
         ::removefile_state_set(state, contextKey, &removal) == 0;
}

// 0, or an errno value.
int removeItem(const std::string &item, std::uint32_t flags) {
  Removal removal;
  State state(::removefile_state_alloc());
  if (!state)
    return ENOMEM;
  if (!callBack(state.get(), REMOVEFILE_STATE_CONFIRM_CALLBACK, beforeItem,
                REMOVEFILE_STATE_CONFIRM_CONTEXT, removal) ||
      !callBack(state.get(), REMOVEFILE_STATE_STATUS_CALLBACK, afterItem,
                REMOVEFILE_STATE_STATUS_CONTEXT, removal))
    return EINVAL;
  int error = ::removefile(item.c_str(), state.get(), flags) == 0 ? 0 : errno;
  return removal.wasStopped ? ECANCELED : error;
}

class PlatformRemoval final : public SecureRemoval {
public:
  int removefile(const std::string &path, std::uint32_t flags) override {
    int error = refusal(path);
    // Without its slashes, so that "link/" is the link.
    if (error == 0)
      error = removeItem(path.substr(0, path.find_last_not_of('/') + 1), flags);
    if (error == 0)
      return 0;
    errno = error;
    return -1;
  }
};

} // namespace

SecureRemoval &SecureRemoval::real() {
  return lastingInstance<PlatformRemoval>();
}

} // namespace NS
