// The diagnostic log: one sink for the whole process, standard error unless a
// test installs its own. Thread-safe. A call writes one line, blocks while
// standard error does, and does not fail: a line that cannot be made or written
// is lost.
#pragma once

#include "Foundation/Base/Format.h"

#include <cstddef>
#include <functional>
#include <new>
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

// Formats the message and writes it. Without memory the message is lost: threads
// log the exceptions that end their work, lack of memory among them, and another
// one would end the process.
template <typename... Arguments> void Log(std::string_view format, const Arguments &...arguments) {
  try {
    logMessage(stringWithFormat(format, arguments...));
  } catch (const std::bad_alloc &) { // as above
  }
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
