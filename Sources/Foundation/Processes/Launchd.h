// Questions to launchd itself, past its command-line tool.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <string>

namespace NS {

// The kinds of launchd's replies that callers tell apart.
enum class LaunchDataType { None, Dictionary, Errno };

class Launchd : public SharedInstance<Launchd> {
public:
  // The request for a job by its label.
  static constexpr const char *GetJobKey = "GetJob";

  virtual ~Launchd() = default;
  static Launchd &real();

  // Sends a dictionary of one entry and returns the kind of the reply, or None
  // without a reply. Throws ResourceShortage or bad_alloc when this process lacks
  // the descriptors or the memory to ask. Any thread may call it. Blocks until the
  // reply, on Linux no longer than so many seconds; launchd's own call on macOS has
  // no time limit. Linux knows no request but the job query, and answers Errno to
  // others.
  virtual LaunchDataType replyToRequest(const std::string &key, const std::string &value,
                                        std::int64_t timeout) = 0;
};

} // namespace NS
