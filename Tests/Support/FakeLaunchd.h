// A launchd that knows the jobs of the test and records its requests.
#pragma once

#include "Foundation/Processes/Launchd.h"

#include <set>
#include <string>
#include <vector>

namespace kwtest {

class FakeLaunchd : public NS::Launchd {
public:
  struct Request {
    std::string key, value;
    std::int64_t timeout;
    friend bool operator==(const Request &, const Request &) = default;
  };
  std::set<std::string> jobs;
  NS::LaunchDataType otherReply = NS::LaunchDataType::Errno;
  std::vector<Request> requests;

  NS::LaunchDataType replyToRequest(const std::string &key, const std::string &value,
                                    std::int64_t timeout) override {
    requests.push_back({key, value, timeout});
    return jobs.contains(value) ? NS::LaunchDataType::Dictionary : otherReply;
  }
};

} // namespace kwtest
