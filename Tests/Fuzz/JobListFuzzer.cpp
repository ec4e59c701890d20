// Any file as a launchd job list: the manager must answer all questions about
// it, and consistently.
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/PropertyLists/PropertyList.h"
#include "Support/FakeFileContents.h"
#include "Support/FuzzInput.h"
#include "Tools/KWLaunchdManager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr const char *path = "/job.plist";
  kwtest::FakeFileContents files;
  files.files[path] = std::string(kwtest::fuzzText(data, size));
  NS::ScopedOverride<NS::FileContents> override(files);
  kw::KWLaunchdManager manager;
  auto label = manager.jobLabelForLaunchdAgent(path);
  bool runs = manager.launchdShouldRunAtLoad(path);
  bool isPeriodic = manager.isAgentLaunchingPeriodicallyWithConfigPath(path);
  auto program = manager.getAppPathOfLaunchDaemon(path);
  bool isAccurate = false;
  auto app = manager.startupApplicationPath(path, &isAccurate);
  kwtest::require(!app || app->ends_with(".app"), "an application's path ends as one");
  kwtest::require(!app || app->find(".app") == app->size() - 4, "it ends at the first ending");
  auto sure = manager.startupApplicationPath(path);
  kwtest::require(sure == (isAccurate ? app : std::nullopt), "only an accurate path is sure");
  auto list = NS::dictionaryWithContentsOfFile(path);
  kwtest::require(list || (!label && !runs && !isPeriodic && !program && !app),
                  "what is no list tells nothing");
  return 0;
}
