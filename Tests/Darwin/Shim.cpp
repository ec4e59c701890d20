// launchd, volumes, the program's path and digests.
#include "Darwin/Shim.h"

#include <CommonCrypto/CommonDigest.h>
#include <cstring>
#include <glib.h>
#include <launch.h>
#include <mach-o/dyld.h>
#include <memory>
#include <sys/mount.h>
#include <sys/stat.h>
#include <utility>

// Text and entries, owned by the object.
struct kw_launch_data {
  launch_data_type_t type;
  std::string text;
  std::map<std::string, std::unique_ptr<kw_launch_data>> entries;

  explicit kw_launch_data(launch_data_type_t dataType, std::string content = "")
      : type(dataType), text(std::move(content)) {
    ++kwtest::darwin::shim().launchData;
  }
  ~kw_launch_data() { --kwtest::darwin::shim().launchData; }
};

namespace kwtest::darwin {

Shim &shim() {
  static Shim instance;
  return instance;
}

std::mutex &shimMutex() {
  static std::mutex mutex;
  return mutex;
}

} // namespace kwtest::darwin

using namespace kwtest::darwin;

static bool hasMemory() {
  std::optional<int> &left = shim().memoryFor;
  return !left || (*left)-- > 0;
}

launch_data_t launch_data_alloc(launch_data_type_t type) {
  return hasMemory() ? new kw_launch_data(type) : nullptr;
}

launch_data_t launch_data_new_string(const char *text) {
  return hasMemory() ? new kw_launch_data(LAUNCH_DATA_STRING, text) : nullptr;
}

bool launch_data_dict_insert(launch_data_t dictionary, launch_data_t value, const char *key) {
  if (dictionary->type != LAUNCH_DATA_DICTIONARY || !shim().takesEntries)
    return false;
  dictionary->entries[key].reset(value);
  return true;
}

launch_data_type_t launch_data_get_type(launch_data_t data) {
  return data->type;
}

void launch_data_free(launch_data_t data) {
  delete data;
}

launch_data_t launch_msg(launch_data_t request) {
  ++shim().messages;
  if (!shim().launchdAnswers || !request)
    return nullptr;
  auto label = request->entries.find(LAUNCH_KEY_GETJOB);
  bool isKnown = request->entries.size() == 1 && label != request->entries.end() &&
                 label->second->type == LAUNCH_DATA_STRING &&
                 shim().jobs.contains(label->second->text);
  return new kw_launch_data(isKnown ? LAUNCH_DATA_DICTIONARY : LAUNCH_DATA_ERRNO);
}

int statfs(const char *path, struct statfs *status) {
  struct stat found;
  if (::stat(path, &found) != 0)
    return -1;
  std::string mountPoint = shim().mountPoint.value_or("/");
  status->f_mntonname[mountPoint.copy(status->f_mntonname, sizeof status->f_mntonname - 1)] = '\0';
  return 0;
}

int _NSGetExecutablePath(char *buffer, std::uint32_t *size) {
  std::string path = shim().executable.value_or("/proc/self/exe");
  std::uint32_t needed = static_cast<std::uint32_t>(path.size()) + 1;
  if (*size < needed) {
    *size = needed;
    return -1;
  }
  std::memcpy(buffer, path.c_str(), needed);
  return 0;
}

int CC_MD5_Init(CC_MD5_CTX *context) {
  context->checksum = g_checksum_new(G_CHECKSUM_MD5);
  return 1;
}

int CC_MD5_Update(CC_MD5_CTX *context, const void *data, CC_LONG length) {
  g_checksum_update(static_cast<GChecksum *>(context->checksum), static_cast<const guchar *>(data),
                    static_cast<gssize>(length));
  return 1;
}

int CC_MD5_Final(unsigned char *digest, CC_MD5_CTX *context) {
  gsize length = CC_MD5_DIGEST_LENGTH;
  g_checksum_get_digest(static_cast<GChecksum *>(context->checksum), digest, &length);
  g_checksum_free(static_cast<GChecksum *>(context->checksum));
  return 1;
}
