// Runs the repair tool and passes on its output.
#include "Tools/KWPermissionsRepair.h"

#include "Tools/SystemTools.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Processes/Task.h"
#include "Foundation/Text/Unicode.h"
#include "Foundation/Text/WordList.h"

#include <exception>

namespace kw {
namespace {

std::optional<std::string> textFromData(std::string data) {
  if (!NS::isWellFormedUTF8(data))
    return std::nullopt;
  return data;
}

// An exception of the listener must not leave the tool writing into a full
// pipe.
void report(const KWReportProgress &reportProgress, const std::optional<std::string> &chunk) {
  try {
    reportProgress(false, chunk);
  } catch (const std::exception &failure) {
    NS::Log("Progress of the permissions repair lost: %@", failure.what());
  }
}

} // namespace

int KWPermissionsRepair::repairPermissionsWithReportProgress(
    const KWReportProgress &reportProgress) const {
  std::shared_ptr<NS::Task> task = NS::Task::create();
  task->setLaunchPath(tools::repairPackages);
  task->setArguments(
      NS::wordList("--output-format", "1", "--repair", "--standard-pkgs", "--volume", "/"));
  std::shared_ptr<NS::Pipe> output = NS::Pipe::pipe();
  task->setStandardOutput(output);
  output->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    // Drops the first read's chunk: clients rely on that.
    static_cast<void>(handle.availableData());
    report(reportProgress, textFromData(handle.availableData()));
  });
  task->launch();
  task->waitUntilExit();
  output->fileHandleForReading().setReadabilityHandler(nullptr);
  return task->processIdentifier();
}

} // namespace kw
