// The job query by way of launchctl, which prints a job as a dictionary: in
// braces, or as a property list.
#include "Foundation/Launchd.h"

#include "Foundation/Exception.h"
#include "Foundation/POSIX/Descriptor.h"
#include "Foundation/POSIX/Descriptors.h"
#include "Foundation/POSIX/Retrying.h"
#include "Foundation/PropertyList.h"
#include "Foundation/SharedInstance.h"
#include "Foundation/WordList.h"

#include <array>
#include <chrono>
#include <csignal>
#include <optional>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr const char *launchctl = "/bin/launchctl";
// A job's description takes a few hundred bytes; a tool that prints without
// end must not fill the memory.
constexpr std::size_t outputLimit = 1u << 20;

class Deadline {
public:
  explicit Deadline(std::int64_t seconds) : end_(Clock::now() + std::chrono::seconds(seconds)) {}
  // For poll; 0 once the time is up.
  int millisecondsLeft() const {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
  }

private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

// Everything until the end of the data; nothing when the time is up first or
// there is too much of it.
std::optional<std::string> outputWithin(int descriptor, const Deadline &deadline) {
  std::string output;
  std::array<char, 4096> buffer;
  for (;;) {
    if (!descriptors::waitForReading(descriptor, -1, deadline.millisecondsLeft()).first)
      return std::nullopt;
    ssize_t count = retrying([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count <= 0)
      return count == 0 ? std::optional(output) : std::nullopt;
    output.append(buffer.data(), static_cast<std::size_t>(count));
    if (output.size() > outputLimit)
      return std::nullopt;
  }
}

// A tool that has not ended in time is ended.
void reap(pid_t tool, bool mayStillRun, const Deadline &deadline) {
  Descriptor exit(descriptors::openExitDescriptor(tool));
  if (!mayStillRun || !exit ||
      !descriptors::waitForReading(exit.get(), -1, deadline.millisecondsLeft()).first)
    ::kill(tool, SIGKILL);
  static_cast<void>(retrying([&] { return ::waitpid(tool, nullptr, 0); }));
}

std::optional<std::string> launchctlList(const std::string &label, const Deadline &deadline) {
  descriptors::PipeEnds pipe = descriptors::openPipe();
  Descriptor reading(pipe.reading), writing(pipe.writing);
  // What it says of a label that it does not know is no news.
  Descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  descriptors::Program program;
  program.path = launchctl;
  program.arguments = wordList(launchctl, "list", label);
  program.standardStreams[0] = program.standardStreams[2] = null.get();
  program.standardStreams[1] = writing.get();
  int tool = 0;
  if (descriptors::spawn(program, tool) != 0)
    return std::nullopt;
  writing.reset();
  auto output = outputWithin(reading.get(), deadline);
  reap(tool, output.has_value(), deadline);
  return output;
}

bool isDictionary(const std::string &output) {
  std::size_t first = output.find_first_not_of(" \t\r\n");
  if (first == std::string::npos)
    return false;
  if (output[first] == '{')
    return true;
  auto list = propertyListWithData(output, nullptr);
  return list && list->dictionary();
}

class LaunchctlQuery final : public Launchd {
public:
  LaunchDataType replyToRequest(const std::string &key, const std::string &value,
                                std::int64_t timeout) override {
    // The tool would see less of such a label than was asked for.
    if (key != GetJobKey || value.find('\0') != std::string::npos)
      return LaunchDataType::Errno;
    try {
      auto output = launchctlList(value, Deadline(timeout));
      if (!output)
        return LaunchDataType::None;
      return isDictionary(*output) ? LaunchDataType::Dictionary : LaunchDataType::Errno;
    } catch (const Exception &) { // no descriptor left for the pipe
      return LaunchDataType::None;
    }
  }
};

SharedInstance<Launchd> &instance() {
  static LaunchctlQuery real;
  static SharedInstance<Launchd> shared(real);
  return shared;
}

} // namespace

Launchd &Launchd::shared() {
  return instance().get();
}

Launchd *Launchd::exchangeShared(Launchd *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
