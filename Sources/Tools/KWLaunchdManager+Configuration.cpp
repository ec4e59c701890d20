// Reads job lists and launchd's configuration.
#include "Tools/KWLaunchdManager.h"

#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Text/StringUtilities.h"

#include <utility>

namespace kw {
namespace {

constexpr std::string_view insertedLibraries = "DYLD_INSERT_LIBRARIES";

std::optional<NS::PropertyList> valueForKey(const std::optional<NS::PropertyList> &job,
                                            std::string_view key) {
  const NS::PropertyList *value = job ? job->objectForKey(key) : nullptr;
  return value ? std::optional(*value) : std::nullopt;
}

std::optional<NS::PropertyList> jobAtPath(const std::optional<std::string> &path) {
  return path ? NS::dictionaryWithContentsOfFile(*path) : std::nullopt;
}

bool isExecutableOfBundle(const std::string &executablePath,
                          const std::optional<std::string> &bundlePath) {
  auto bundle = bundlePath ? NS::Bundle::bundleWithPath(*bundlePath) : nullptr;
  return bundle && bundle->executablePath() == executablePath;
}

} // namespace

std::optional<std::string>
KWLaunchdManager::jobLabelForLaunchdAgent(const std::optional<std::string> &path) const {
  auto label = valueForKey(jobAtPath(path), "Label");
  return label && label->string() ? std::optional(*label->string()) : std::nullopt;
}

std::optional<NS::PropertyList>
KWLaunchdManager::getAppPathOfLaunchDaemon(const std::optional<std::string> &path) const {
  return valueForKey(jobAtPath(path), "Program");
}

bool KWLaunchdManager::launchdShouldRunAtLoad(const std::optional<std::string> &path) const {
  auto flag = valueForKey(jobAtPath(path), "RunAtLoad");
  return flag && flag->boolValue();
}

bool KWLaunchdManager::isAgentLaunchingPeriodicallyWithConfigPath(
    const std::optional<std::string> &path) const {
  return valueForKey(jobAtPath(path), "StartCalendarInterval").has_value();
}

std::optional<std::string>
KWLaunchdManager::appPathFormObject(const std::optional<NS::PropertyList> &object,
                                    std::optional<std::string> *executablePath) const {
  constexpr std::string_view marker = ".app";
  const std::string *text = object ? object->string() : nullptr;
  std::size_t found = text ? text->find(marker) : std::string::npos;
  if (found == std::string::npos)
    return std::nullopt;
  std::string appPath = text->substr(0, found + marker.size());
  if (executablePath && appPath != *text)
    *executablePath = *text;
  return appPath;
}

std::optional<std::string>
KWLaunchdManager::startupApplicationPath(const std::optional<std::string> &path,
                                         bool *accurate) const {
  auto job = jobAtPath(path);
  std::optional<std::string> appPath, executablePath;
  if (auto arguments = valueForKey(job, "ProgramArguments")) {
    if (const auto *array = arguments->array()) {
      for (auto element = array->begin(); element != array->end() && !appPath; ++element)
        appPath = appPathFormObject(*element, &executablePath);
    } else {
      NS::Log("Expected array for \"ProgramArguments\", but has %@", *arguments);
    }
  }
  if (!appPath)
    appPath = appPathFormObject(valueForKey(job, "Program"), &executablePath);
  if (accurate)
    *accurate = !executablePath || isExecutableOfBundle(*executablePath, appPath);
  return appPath;
}

std::optional<std::string>
KWLaunchdManager::startupApplicationPath(const std::optional<std::string> &path) const {
  bool accurate = false;
  auto appPath = startupApplicationPath(path, &accurate);
  return accurate ? appPath : std::nullopt;
}

std::optional<std::string> KWLaunchdManager::removeLibrary(std::string_view library,
                                                           std::string_view setenv) const {
  if (!kws_containsString(setenv, library))
    return std::string(setenv);
  auto anchor = NS::rangeOfString(setenv, insertedLibraries);
  if (!anchor)
    throw NS::Exception(NS::RangeException,
                        "The line does not name the variable DYLD_INSERT_LIBRARIES.");
  std::string rest = stringByRemovingSemicolonSeparatedString(
      setenv.substr(anchor->location + anchor->length), library);
  if (rest.empty())
    return std::nullopt;
  return "setenv " + std::string(insertedLibraries) + " \"" + rest + "\"";
}

} // namespace kw
