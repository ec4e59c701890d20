// Reads job property lists, asks launchd for jobs, and loads, unloads, starts,
// stops and removes them through launchctl.
//
// Keeps no state; any thread may call all members, which block until the tool
// or the query is done. A member throws only where its comment says so: a
// failure is false or an empty optional, with a line in the log. Steps call
// each other virtually, so that a derived class can replace one. A path is that
// of a job's property list; an unreadable list counts as one without any key.
// A member that reads a list, asks launchd or unloads a job throws
// NS::ResourceShortage when this process lacks the descriptors or the memory for
// that.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/PropertyLists/PropertyList.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kw {

class KWLaunchdManager : public NS::SharedInstance<KWLaunchdManager> {
public:
  // In seconds. When launchd does not answer in this time, a job counts as not
  // loaded.
  static constexpr std::int64_t jobQueryTimeout = 30;

  virtual ~KWLaunchdManager() = default;
  static KWLaunchdManager &real();

  // Judges by launchctl's exit status. False for nil, without a run.
  virtual bool stopAgentWithLabel(const std::optional<std::string> &label) const;
  virtual bool startAgentWithLabel(const std::optional<std::string> &label) const;

  // Enables and loads the job. True without a run when it is loaded.
  virtual bool loadLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  // Unloads the job, loaded or not, then removes the privileged tool that has
  // the list's own file name. Any output of launchctl is a failure, and then
  // the tool stays.
  virtual bool unloadLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  // True at once when the job is loaded, else the result of loading it.
  virtual bool enableAgentAtPath(const std::optional<std::string> &path) const;
  // Call _unloadAgentAtPath, the first without and the second with disabling.
  virtual bool unloadAgentAtPath(const std::optional<std::string> &path) const;
  virtual bool disableAgentAtPath(const std::optional<std::string> &path) const;
  // Unloads the job, and disables it for later starts if asked. Then stops it by
  // its label, since it may go on running; that may fail. True without a run
  // when the job is not loaded.
  virtual bool _unloadAgentAtPath(const std::optional<std::string> &path, bool shouldDisable) const;
  // Unloads the job with its tool, then deletes the list. The list stays when
  // the unloading failed.
  virtual bool removeAgentAtPath(const std::optional<std::string> &path) const;
  // True also when there is no such tool. A label that is not a file name names
  // no tool.
  virtual bool removePrivilegedToolWithLabel(const std::optional<std::string> &label) const;

  // Tells whether launchd has a job of the list's label.
  virtual bool isLoadedLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  virtual std::optional<std::string>
  jobLabelForLaunchdAgent(const std::optional<std::string> &path) const;
  // The value of "Program", of any type.
  virtual std::optional<NS::PropertyList>
  getAppPathOfLaunchDaemon(const std::optional<std::string> &path) const;
  virtual bool launchdShouldRunAtLoad(const std::optional<std::string> &path) const;
  virtual bool
  isAgentLaunchingPeriodicallyWithConfigPath(const std::optional<std::string> &path) const;

  // Returns the string up to and including its first ".app", or an empty
  // optional without one. When the string goes on after it, stores the whole
  // string as the executable's path.
  virtual std::optional<std::string>
  appPathFormObject(const std::optional<NS::PropertyList> &object,
                    std::optional<std::string> *executablePath) const;
  // The application that the job starts: the first in "ProgramArguments", else
  // in "Program". Accurate when the job names the bundle itself or exactly the
  // executable of that bundle, and when there is no application.
  virtual std::optional<std::string> startupApplicationPath(const std::optional<std::string> &path,
                                                            bool *accurate) const;
  // The same, but empty unless it is accurate.
  virtual std::optional<std::string>
  startupApplicationPath(const std::optional<std::string> &path) const;

  // Takes one library out of a line of launchd's configuration that sets
  // DYLD_INSERT_LIBRARIES. Returns the line unchanged when it does not hold the
  // library, and an empty optional when no library is left. A line that holds
  // the library but not the name of the variable raises RangeException.
  virtual std::optional<std::string> removeLibrary(std::string_view library,
                                                   std::string_view setenv) const;
};

} // namespace kw
