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

// Drops the first chunk and reports the second: clients rely on that. Neither an
// exception of the listener nor a lack of memory must leave the tool writing into
// a full pipe, so each call reads something.
void passOn(NS::FileHandle &output, const KWReportProgress &reportProgress) {
  output.discardAvailableData();
  try {
    reportProgress(false, textFromData(output.availableData()));
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
  output->fileHandleForReading().setReadabilityHandler(
      [&](NS::FileHandle &handle) { passOn(handle, reportProgress); });
  task->launch();
  task->waitUntilExit();
  output->fileHandleForReading().setReadabilityHandler(nullptr);
  return task->processIdentifier();
}

} // namespace kw
