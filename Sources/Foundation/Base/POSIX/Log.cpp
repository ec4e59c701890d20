// The default sink: one line to standard error, which the host's supervisor
// keeps. It escapes control characters, since paths in messages are untrusted
// and must not forge a second line.
#include "Foundation/Base/Log.h"

#include "Foundation/Base/BoundedText.h"

#include <memory>
#include <mutex>
#include <unistd.h>

#include <fmt/format.h>

namespace NS {
namespace {

std::string singleLine(const std::string &message) {
  std::string line;
  for (char c : message) {
    auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f)
      line += c;
    else
      line += c == '\n' ? "\\n" : c == '\t' ? "\\t" : fmt::format("\\x{:02x}", byte);
  }
  return line;
}

void writeToStandardError(const std::string &message) {
  std::string line = singleLine(message) + "\n";
  // An unwritable log does not fail the operation.
  ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  static_cast<void>(written);
}

struct Sink {
  std::mutex mutex;
  // Shared, so that the sink of a message under way survives its replacement.
  std::shared_ptr<const LogSink> current = std::make_shared<const LogSink>(writeToStandardError);
};

Sink &sink() {
  // Never destroyed: threads may log until the very end of the process.
  static Sink *instance = new Sink;
  return *instance;
}

LogSink exchangeSink(LogSink replacement) {
  std::lock_guard lock(sink().mutex);
  LogSink former = *sink().current;
  sink().current = std::make_shared<const LogSink>(std::move(replacement));
  return former;
}

} // namespace

void logMessage(const std::string &text) {
  std::string message = boundedText(text, longestLogMessage);
  std::shared_ptr<const LogSink> current;
  {
    std::lock_guard lock(sink().mutex);
    current = sink().current;
  }
  (*current)(message);
}

ScopedLogSink::ScopedLogSink(LogSink sink) : previous_(exchangeSink(std::move(sink))) {}

ScopedLogSink::~ScopedLogSink() {
  exchangeSink(std::move(previous_));
}

} // namespace NS
