// The job query by way of launchctl, which prints a job as a dictionary: in
// braces, or as a property list.
#include "Foundation/Processes/Launchd.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Processes/Task.h"
#include "Foundation/PropertyLists/PropertyList.h"
#include "Foundation/Text/WordList.h"

#include <chrono>
#include <optional>

namespace NS {
namespace {

constexpr const char *launchctl = "/bin/launchctl";
// A job's description takes a few hundred bytes; a tool that prints without
// end must not fill the memory.
constexpr std::size_t outputLimit = 1u << 20;

// The output for a job; empty when it is too long or does not end in time. Raises
// when launchctl cannot be started.
std::optional<std::string> launchctlList(const std::string &label, std::chrono::seconds limit) {
  std::shared_ptr<Task> task = Task::create();
  task->setLaunchPath(launchctl);
  task->setArguments(wordList("list", label));
  task->setStandardInput(Pipe::nullDevice());
  task->setStandardOutput(Pipe::pipe());
  // Its error for an unknown label carries no information.
  task->setStandardError(Pipe::nullDevice());
  task->setTimeLimit(limit);
  task->launch();
  return task->readOutput(outputLimit);
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
    // The tool would get such a label cut short at the NUL byte.
    if (key != GetJobKey || value.find('\0') != std::string::npos)
      return LaunchDataType::Errno;
    try {
      auto output = launchctlList(value, std::chrono::seconds(timeout));
      if (!output)
        return LaunchDataType::None;
      return isDictionary(*output) ? LaunchDataType::Dictionary : LaunchDataType::Errno;
    } catch (const Exception &) { // it cannot be started
      return LaunchDataType::None;
    }
  }
};

} // namespace

Launchd &Launchd::real() {
  return lastingInstance<LaunchctlQuery>();
}

} // namespace NS
