// The job query by launch_msg, launchd's own protocol.
#include "Foundation/Processes/Launchd.h"

#include <launch.h>
#include <memory>
#include <new>
#include <string_view>

// Deprecated, but the platform has no other call that answers this question.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace NS {
namespace {

static_assert(std::string_view(Launchd::GetJobKey) == LAUNCH_KEY_GETJOB);

struct FreeLaunchData {
  void operator()(launch_data_t data) const { ::launch_data_free(data); }
};
using LaunchData = std::unique_ptr<std::remove_pointer_t<launch_data_t>, FreeLaunchData>;

// Throws bad_alloc without memory. Null would mean that launchd does not have the
// job.
LaunchData makeRequest(const std::string &key, const std::string &value) {
  LaunchData request(::launch_data_alloc(LAUNCH_DATA_DICTIONARY));
  LaunchData text(::launch_data_new_string(value.c_str()));
  if (!request || !text || !::launch_data_dict_insert(request.get(), text.get(), key.c_str()))
    throw std::bad_alloc();
  static_cast<void>(text.release()); // the dictionary frees it
  return request;
}

class LaunchdQuery final : public Launchd {
public:
  // The call knows no time limit of its own.
  LaunchDataType replyToRequest(const std::string &key, const std::string &value,
                                std::int64_t /*timeout*/) override {
    // launchd would get such a text cut short at the NUL byte.
    if (key.find('\0') != std::string::npos || value.find('\0') != std::string::npos)
      return LaunchDataType::Errno;
    LaunchData request = makeRequest(key, value);
    LaunchData reply(::launch_msg(request.get()));
    if (!reply)
      return LaunchDataType::None;
    bool isDictionary = ::launch_data_get_type(reply.get()) == LAUNCH_DATA_DICTIONARY;
    return isDictionary ? LaunchDataType::Dictionary : LaunchDataType::Errno;
  }
};

} // namespace

Launchd &Launchd::real() {
  return lastingInstance<LaunchdQuery>();
}

} // namespace NS
