// Commands for what starts by itself, and for system software that goes.
#include "CommandLine/Command.h"
#include "CommandLine/Look.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/RemovalPreview.h"
#include "Protocol/Identity.h"
#include "Tools/KWLaunchdManager.h"
#include "Tools/SystemTools.h"

#include <memory>

namespace kw {
namespace {

using Text = std::shared_ptr<std::string>;
using FlagOperation = std::function<Told(Session &, const std::string &)>;

Text declareText(Arguments &arguments, const char *name, const char *typeName, const char *help) {
  auto text = std::make_shared<std::string>();
  arguments.operand(name, *text, typeName, help);
  return text;
}

Text declarePath(Arguments &arguments, const char *typeName, const char *help) {
  return declareText(arguments, "path", typeName, help);
}

// One request whose only argument is a text, as given or as an absolute path.
struct FlagRequest {
  const char *command; // both words
  const char *member;  // of the JSON object, for the argument
  const char *typeName;
  const char *help;
  bool isPath = false;
  FlagOperation operation;
  const char *done;   // before the argument
  const char *failed; // after it
  // before the argument: the command asks before work that cannot be undone
  const char *question = nullptr;
  const char *would = nullptr; // before the argument: the words of a dry run
  bool removesItem = false;    // at the path, so that a dry run can tell its size
};

// An operation without the options of its request.
template <typename Reply>
FlagOperation asked(Request<Reply> (Client::*operation)(const std::string &,
                                                        const RequestOptions &)) {
  return [operation](Session &session, const std::string &argument) {
    return Told(session.await((session.agent().*operation)(argument, session.requestOptions())));
  };
}

// The agent may read files that this user may not.
std::function<std::optional<std::string>()> obstacleAt(const std::string &path) {
  return [path] {
    return presenceOf(path) == Presence::Missing ? obstacleToReading(path) : std::nullopt;
  };
}

std::function<CommandRun(Arguments &)> flagCommand(const FlagRequest &kind) {
  return [kind](Arguments &arguments) -> CommandRun {
    Text text = declareText(arguments, kind.member, kind.typeName, kind.help);
    auto dryRun = kind.would ? declareDryRun(arguments) : nullptr;
    auto yes = kind.question ? declareYes(arguments) : nullptr;
    return [kind, text, dryRun, yes](Session &session) {
      std::string argument = kind.isPath ? absolutePath(*text) : *text;
      if (dryRun && *dryRun && kind.removesItem)
        return previewRemoval(
            session, {{argument}}, KeepList({}),
            {.command = kind.command, .would = kind.would, .mayTakeProtected = true});
      JSONObject request;
      request.add("command", kind.command).addName(kind.member, argument);
      if (dryRun && *dryRun)
        return tellDryRun(session, request,
                          {kind.would + argument, argument + kind.failed, argument,
                           kind.isPath ? obstacleAt(argument) : nullptr});
      if (kind.question)
        session.confirm(kind.question + argument + " for good?", *yes);
      return reportingFailures(session, request, [&] {
        Told reply = kind.operation(session, argument);
        return tellOutcome(session, request, reply,
                           {kind.done + argument, argument + kind.failed, argument});
      });
    };
  };
}

// Reads the list itself: without the agent for a user that may read it.
int tellJob(Session &session, const std::string &path) {
  const KWLaunchdManager &manager = KWLaunchdManager::shared();
  auto label = manager.jobLabelForLaunchdAgent(path);
  JSONObject object;
  object.add("command", "launchd info").addName("path", path).add("success", label.has_value());
  if (!label) {
    std::string reason = obstacleToReading(path).value_or("it is not a job list");
    session.sayFailure(object.add("error", jsonOfReason(reason)));
    session.complain(path + " could not be read: " + reason);
    return ExitRefused;
  }
  bool accurate = false;
  auto appPath = manager.startupApplicationPath(path, &accurate);
  bool isLoaded = manager.isLoadedLaunchAgentWithConfigPath(path);
  bool runsAtLoad = manager.launchdShouldRunAtLoad(path);
  bool isPeriodic = manager.isAgentLaunchingPeriodicallyWithConfigPath(path);
  object.add("label", *label).add("loaded", isLoaded).add("runAtLoad", runsAtLoad);
  object.add("periodic", isPeriodic);
  if (appPath)
    object.addName("application", *appPath).add("applicationIsCertain", accurate);
  session.sayJSON(object);

  auto yesOrNo = [](bool flag) { return flag ? "yes" : "no"; };
  session.say("Label: " + *label);
  session.say(std::string("Loaded: ") + yesOrNo(isLoaded));
  session.say(std::string("Runs when loaded: ") + yesOrNo(runsAtLoad));
  session.say(std::string("Runs by the calendar: ") + yesOrNo(isPeriodic));
  if (appPath)
    session.say("Application: " + *appPath + (accurate ? "" : " (not certain)"));
  return ExitDone;
}

CommandRun declareJobInfo(Arguments &arguments) {
  Text path = declarePath(arguments, "PLIST", "A job's property list");
  return [path](Session &session) { return tellJob(session, absolutePath(*path)); };
}

// All arguments after the path go to the tool unchanged, options included.
CommandRun declareSlim(Arguments &arguments) {
  Text path = declarePath(arguments, "PATH", "A universal binary");
  auto dryRun = declareDryRun(arguments);
  auto yes = declareYes(arguments);
  auto architectures = std::make_shared<std::vector<std::string>>();
  arguments.everythingBehind(*architectures, "DITTO-OPTION");
  return [path, dryRun, yes, architectures](Session &session) {
    std::string binary = absolutePath(*path);
    JSONObject request;
    request.add("command", "slim").addName("path", binary);
    if (*dryRun)
      return tellDryRun(
          session, request,
          {"Would strip " + binary, binary + " could not be slimmed", binary, obstacleAt(binary)});
    session.confirm("Strip " + binary + " for good?", *yes);
    return reportingFailures(session, request, [&] {
      Told reply = session.await(session.agent().slimBinaryWithPathAsync(binary, *architectures,
                                                                         session.requestOptions()));
      return tellOutcome(session, request, reply,
                         {"Slimmed " + binary, binary + " could not be slimmed", binary});
    });
  };
}

// The verbs as they are, for systems that have the tool or the file.
CommandTable needing(CommandTable verbs, const char *tool, const char *file = nullptr) {
  for (Command &verb : verbs) {
    if (tool)
      verb.tools = {tool};
    verb.file = file;
  }
  return verbs;
}

CommandTable launchdChanges() {
  return {
      {"enable",
       "Load a job, now and from now on",
       flagCommand({.command = "launchd enable",
                    .member = "path",
                    .typeName = "PLIST",
                    .help = "A job's property list",
                    .isPath = true,
                    .operation = asked(&Client::enableLaunchdAgentAtPathAsync),
                    .done = "Enabled ",
                    .failed = " could not be enabled"}),
       {{"launchd enable /Library/LaunchDaemons/org.example.job.plist",
         "undoes what launchd disable did"}}},
      {"disable",
       "Unload a job for good and stop it",
       flagCommand({.command = "launchd disable",
                    .member = "path",
                    .typeName = "PLIST",
                    .help = "A job's property list",
                    .isPath = true,
                    .operation = asked(&Client::disableLaunchdAgentAtPathAsync),
                    .done = "Disabled ",
                    .failed = " could not be disabled"}),
       {{"launchd disable /Library/LaunchDaemons/org.example.job.plist",
         "it no longer starts by itself; its files stay"}}},
      {"remove",
       "Unload a job and delete its list and its privileged tool",
       flagCommand({.command = "launchd remove",
                    .member = "path",
                    .typeName = "PLIST",
                    .help = "A job's property list",
                    .isPath = true,
                    .operation = asked(&Client::removeLaunchdAgentAtPathAsync),
                    .done = "Removed ",
                    .failed = " could not be removed",
                    .question = "Remove the job ",
                    .would = "Would remove the job "}),
       {{"launchd remove /Library/LaunchDaemons/org.example.job.plist",
         "launchd disable keeps the files"}}},
  };
}

CommandTable launchdVerbs() {
  CommandTable verbs = needing(launchdChanges(), tools::launchctl);
  verbs.insert(verbs.begin(), {"info",
                               "Show the settings of a job, and whether launchd has loaded it",
                               declareJobInfo,
                               {{"launchd info /Library/LaunchDaemons/org.example.job.plist",
                                 "its label, its state and its application"}}});
  return verbs;
}

CommandTable startupVerbs() {
  return {
      {"start",
       "Start a startup item",
       flagCommand({.command = "startup start",
                    .member = "name",
                    .typeName = "NAME",
                    .help = "A startup item",
                    .operation = asked(&Client::startStartupItemAsync),
                    .done = "Asked to start ",
                    .failed = " could not be started"}),
       {{"startup start \"Web Server\"", "the system does not report whether it started"}}},
      {"stop",
       "Stop a startup item",
       flagCommand({.command = "startup stop",
                    .member = "name",
                    .typeName = "NAME",
                    .help = "A startup item",
                    .operation = asked(&Client::stopStartupItemAsync),
                    .done = "Asked to stop ",
                    .failed = " could not be stopped"}),
       {{"startup stop \"Web Server\"", "the system does not report whether it stopped"}}},
  };
}

CommandTable loginItemVerbs() {
  return {
      {"remove-global",
       "Remove an application from the login items of all users",
       flagCommand({.command = "login-item remove-global",
                    .member = "path",
                    .typeName = "APP",
                    .help = "The application",
                    .isPath = true,
                    .operation = asked(&Client::removeGlobalLoginItemForAppWithPathAsync),
                    .done = "No login item of all users starts ",
                    .failed = " could not be removed from the login items of all users"}),
       {{"login-item remove-global /opt/example/run", "it no longer starts with every session"}}},
      {"remove-sm",
       "Remove a login item that an application registered for itself",
       flagCommand({.command = "login-item remove-sm",
                    .member = "identifier",
                    .typeName = "ID",
                    .help = "Its bundle identifier",
                    .operation = asked(&Client::removeSMLoginItemAsync),
                    .done = "No login item is registered as ",
                    .failed = " could not be removed from the login items"}),
       {{"login-item remove-sm org.example.helper", "by its identifier, not its path"}}},
  };
}

CommandTable kextVerbs() {
  return {{"remove",
           "Unload and delete a kernel extension",
           flagCommand({.command = "kext remove",
                        .member = "path",
                        .typeName = "PATH",
                        .help = "The extension's bundle",
                        .isPath = true,
                        .operation = asked(&Client::removeKextAtPathAsync),
                        .done = "Removed ",
                        .failed = " could not be removed",
                        .question = "Remove ",
                        .would = "Would remove ",
                        .removesItem = true}),
           {{"kext remove /Library/Extensions/Example.kext", "for good"}}}};
}

CommandTable packageVerbs() {
  return {{"forget",
           "Forget a package's receipt; its files stay",
           flagCommand({.command = "package forget",
                        .member = "identifier",
                        .typeName = "ID",
                        .help = "The package's identifier",
                        .operation = asked(&Client::removePackageWithIDAsync),
                        .done = "Forgot ",
                        .failed = " could not be forgotten",
                        .question = "Forget ",
                        .would = "Would forget "}),
           {{"package forget org.example.pkg", "the system no longer knows it was installed"}}}};
}

CommandTable configurationVerbs() {
  return {{"remove-library",
           "Remove a library from those inserted into every program",
           flagCommand({.command = "launchd-conf remove-library",
                        .member = "library",
                        .typeName = "LIB",
                        .help = "The library's path as written there",
                        .operation = asked(&Client::removeLibraryFromLauchdConfAsync),
                        .done = "No longer inserted into programs: ",
                        .failed = " could not be taken out of launchd's configuration"}),
           {{"launchd-conf remove-library /usr/lib/libexample.dylib",
             "a copy of the former file stays beside it, under a name that ends in .prev"}}}};
}

} // namespace

CommandTable serviceCommands() {
  return {
      {"launchd",
       "Show, enable, disable and remove launchd jobs",
       nullptr,
       {{"launchd disable /Library/LaunchDaemons/org.example.job.plist", "stop a job for good"}},
       launchdVerbs()},
      {"startup",
       "Start and stop startup items",
       nullptr,
       {{"startup stop \"Web Server\"", "until the next start of the system"}},
       needing(startupVerbs(), tools::systemStarter)},
      {"login-item",
       "Remove login items",
       nullptr,
       {{"login-item remove-sm org.example.helper", "by its bundle identifier"}},
       loginItemVerbs()},
      {"kext",
       "Remove kernel extensions",
       nullptr,
       {{"kext remove /Library/Extensions/Example.kext", "for good"}},
       needing(kextVerbs(), tools::kextunload)},
      {"package",
       "Forget package receipts",
       nullptr,
       {{"package forget org.example.pkg", "its files stay"}},
       needing(packageVerbs(), tools::pkgutil)},
      {"launchd-conf",
       "Edit launchd's configuration",
       nullptr,
       {{"launchd-conf remove-library /usr/lib/libexample.dylib",
         "no longer inserted into programs"}},
       needing(configurationVerbs(), nullptr, tools::launchdConfiguration)},
      {"slim",
       "Remove architectures from a universal binary",
       declareSlim,
       {{"slim /opt/example/run --arch x86_64", "keeps only this architecture"},
        {"slim --json /opt/example/run --arch x86_64", "options of keepwell come before PATH"}},
       {},
       "The words after PATH are options of the tool ditto, which name the architectures to keep, "
       "such as: --arch x86_64\nOptions of keepwell come before PATH."},
  };
}

} // namespace kw
