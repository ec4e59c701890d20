// The diagnostic log: one sink for the whole process, standard error unless a
// test installs its own. Thread-safe. A call writes one line, and blocks while
// standard error does. A line that cannot be written is lost.
#pragma once

#include "Foundation/Base/Format.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace NS {

// Receives each message without a trailing newline, possibly from several
// threads at once.
using LogSink = std::function<void(const std::string &message)>;

// Longer messages are cut in the middle, with a mark there: other parties
// choose their contents.
inline constexpr std::size_t longestLogMessage = 8192;

// Writes the message to the sink in force.
void logMessage(const std::string &text);

template <typename... Arguments> void Log(std::string_view format, const Arguments &...arguments) {
  logMessage(stringWithFormat(format, arguments...));
}

// Installs a sink for the life of this object, then the former one again.
class ScopedLogSink {
public:
  explicit ScopedLogSink(LogSink sink);
  ~ScopedLogSink();
  ScopedLogSink(const ScopedLogSink &) = delete;
  ScopedLogSink &operator=(const ScopedLogSink &) = delete;

private:
  LogSink previous_;
};

} // namespace NS
