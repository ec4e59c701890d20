// The one who deals with launchd: reads job property lists, asks for jobs, and
// loads, unloads, starts, stops and removes them through launchctl.
//
// Keeps no state; all may be called from any thread and block until the tool
// or the query is done. Nothing is thrown but where it says so: a failure is
// false or nothing, with a line in the log. Steps call each other virtually,
// so that a derived class can replace one. A path is that of a job's property
// list; a list that cannot be read is one without any key.
#pragma once

#include "Foundation/PropertyList.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kw {

class KWLaunchdManager {
public:
  // In seconds; a launchd that does not answer within it knows no job.
  static constexpr std::int64_t jobQueryTimeout = 30;

  virtual ~KWLaunchdManager() = default;
  static KWLaunchdManager &shared();
  static KWLaunchdManager *exchangeShared(KWLaunchdManager *replacement);

  // By launchctl's exit status. False for nil without running anything.
  virtual bool stopAgentWithLabel(const std::optional<std::string> &label) const;
  virtual bool startAgentWithLabel(const std::optional<std::string> &label) const;

  // Enables and loads the job; true without running anything when it is loaded.
  virtual bool loadLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  // Unloads the job, loaded or not, then removes the privileged tool that has
  // the list's own file name. Anything that launchctl prints is a failure, and
  // then the tool stays.
  virtual bool unloadLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  virtual bool enableAgentAtPath(const std::optional<std::string> &path) const;
  virtual bool unloadAgentAtPath(const std::optional<std::string> &path) const;
  virtual bool disableAgentAtPath(const std::optional<std::string> &path) const;
  // Unloads the job, for good if asked, and stops what still runs of it. True
  // without running anything when it is not loaded.
  virtual bool _unloadAgentAtPath(const std::optional<std::string> &path, bool shouldDisable) const;
  // Unloads the job with its tool, then deletes the list. The list stays when
  // the unloading failed.
  virtual bool removeAgentAtPath(const std::optional<std::string> &path) const;
  // True as well when there is no such tool. A label that is no file name
  // names none.
  virtual bool removePrivilegedToolWithLabel(const std::optional<std::string> &label) const;

  // Whether launchd has a job of the list's label.
  virtual bool isLoadedLaunchAgentWithConfigPath(const std::optional<std::string> &path) const;
  virtual std::optional<std::string>
  jobLabelForLaunchdAgent(const std::optional<std::string> &path) const;
  // The value of "Program", whatever it is.
  virtual std::optional<NS::PropertyList>
  getAppPathOfLaunchDaemon(const std::optional<std::string> &path) const;
  virtual bool launchdShouldRunAtLoad(const std::optional<std::string> &path) const;
  virtual bool
  isAgentLaunchingPeriodicallyWithConfigPath(const std::optional<std::string> &path) const;

  // A string up to and including its first ".app", nothing when there is none.
  // The whole string is stored as the executable's path when there is more.
  virtual std::optional<std::string>
  appPathFormObject(const std::optional<NS::PropertyList> &object,
                    std::optional<std::string> *executablePath) const;
  // The application that the job starts: the first in "ProgramArguments", else
  // "Program". Accurate when the job names the bundle itself or exactly the
  // executable of that bundle; accurate as well when there is no application.
  virtual std::optional<std::string> startupApplicationPath(const std::optional<std::string> &path,
                                                            bool *accurate) const;
  // The same, but nothing unless it is accurate.
  virtual std::optional<std::string>
  startupApplicationPath(const std::optional<std::string> &path) const;

  // A line of launchd's configuration that sets DYLD_INSERT_LIBRARIES, less
  // one library: the line as it is when it does not hold the library, nothing
  // when no library is left. A line that holds the library but not the name of
  // the variable raises RangeException.
  virtual std::optional<std::string> removeLibrary(std::string_view library,
                                                   std::string_view setenv) const;
};

} // namespace kw
