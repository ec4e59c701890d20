// Commands that maintain the whole system.
#include "CommandLine/Command.h"
#include "CommandLine/Outcome.h"
#include "Tools/SystemTools.h"

#include <memory>
#include <mutex>
#include <utility>

namespace kw {
namespace {

using FlagOperation = std::function<Told(Session &)>;

template <typename Reply>
FlagOperation asked(Request<Reply> (Client::*operation)(const RequestOptions &)) {
  return [operation](Session &session) {
    return Told(session.await((session.agent().*operation)(session.requestOptions())));
  };
}

JSONObject requestOf(const std::string &verb) {
  JSONObject request;
  request.add("command", "maintenance " + verb);
  return request;
}

// For work that cannot be undone.
struct Destruction {
  const char *question = nullptr;
  const char *would = nullptr; // the sentence of a dry run
};

// A verb without arguments, answered with a flag.
Command flagVerb(const char *verb, const char *summary, std::vector<Example> examples,
                 const FlagOperation &operation, const Wording &wording,
                 const Destruction &destruction = {}) {
  return {verb, summary,
          [=](Arguments &arguments) -> CommandRun {
            auto dryRun = destruction.would ? declareDryRun(arguments) : nullptr;
            auto yes = destruction.question ? declareYes(arguments) : nullptr;
            return [=](Session &session) {
              JSONObject request = requestOf(verb);
              if (dryRun && *dryRun)
                return tellDryRun(session, request, {destruction.would, wording.failed});
              if (destruction.question)
                session.confirm(destruction.question, *yes);
              return reportingFailures(session, request, [&] {
                return tellOutcome(session, request, operation(session), wording);
              });
            };
          },
          std::move(examples)};
}

CommandRun declarePeriodic(Arguments &arguments) {
  auto name = std::make_shared<std::string>();
  arguments.operand("name", *name, "NAME",
                    "The scripts: daily, weekly, monthly or a folder of scripts");
  return [name](Session &session) {
    JSONObject request = requestOf("periodic");
    request.add("name", *name);
    return reportingFailures(session, request, [&] {
      Told reply =
          session.await(session.agent().runPeriodicScriptAsync(*name, session.requestOptions()));
      return tellOutcome(session, request, reply,
                         {"Ran the periodic scripts " + *name, *name + " could not be run"});
    });
  };
}

std::string failureOf(const LogErasureReply &reply) {
  if (reply.error)
    return causeOf(*reply.error);
  return "its tool ended with status " + std::to_string(reply.toolStatus.value_or(0));
}

int tellErasure(Session &session, JSONObject request, const LogErasureReply &reply) {
  request.add("success", reply.isErased());
  if (reply.toolStatus)
    request.add("status", *reply.toolStatus);
  if (reply.output)
    request.add("output", *reply.output);
  if (reply.errorOutput)
    request.add("errorOutput", *reply.errorOutput);
  if (reply.isErased())
    session.sayJSON(request);
  else
    session.sayFailure(request.add("error", reply.error ? jsonOfError(*reply.error)
                                                        : jsonOfReason(failureOf(reply))));
  if (reply.output)
    session.sayLines(*reply.output);
  if (reply.errorOutput)
    session.complainLines(*reply.errorOutput);
  if (reply.isErased())
    session.say("Erased the unified log");
  else
    session.complain("the unified log could not be erased: " + failureOf(reply));
  return reply.isErased() ? ExitDone : ExitRefused;
}

CommandRun declareEraseUnifiedLog(Arguments &arguments) {
  auto dryRun = declareDryRun(arguments);
  auto yes = declareYes(arguments);
  return [dryRun, yes](Session &session) {
    JSONObject request = requestOf("erase-unified-log");
    if (*dryRun)
      return tellDryRun(session, request, {"Would erase the unified log", ""});
    session.confirm("Erase the unified log for good?", *yes);
    return reportingFailures(session, request, [&] {
      return tellErasure(
          session, request,
          session.await(session.agent().removeDiagnosticLogsAsync(session.requestOptions())));
    });
  };
}

// Shows the repair tool's output. The client's thread brings the chunks; the
// command's thread prints them, since it alone uses the streams.
class RepairProgress : public News {
public:
  explicit RepairProgress(Session &session) : session_(session), alarm_(session.alarm()) {}

  void add(const std::string &chunk) {
    {
      std::lock_guard lock(mutex_);
      chunks_.push_back(chunk);
    }
    alarm_->ring();
  }
  bool isNew() const override {
    std::lock_guard lock(mutex_);
    return !chunks_.empty();
  }

  void show() override {
    for (const std::string &chunk : take())
      if (!chunk.empty()) // the end of the output is an empty one
        show(chunk);
  }

private:
  std::vector<std::string> take() {
    std::lock_guard lock(mutex_);
    return std::exchange(chunks_, {});
  }
  void show(const std::string &chunk) {
    session_.sayJSON(requestOf("repair-permissions").add("progress", chunk));
    session_.show(chunk);
    session_.flush();
  }

  Session &session_;
  const std::shared_ptr<Alarm> alarm_;
  mutable std::mutex mutex_;
  std::vector<std::string> chunks_;
};

CommandRun declareRepairPermissions(Arguments & /*arguments*/) {
  return [](Session &session) {
    JSONObject request = requestOf("repair-permissions");
    return reportingFailures(session, request, [&] {
      auto progress = std::make_shared<RepairProgress>(session);
      RepairReply reply =
          session.await(session.agent().repairPermissionsAsync(
                            [progress](const std::string &chunk) { progress->add(chunk); },
                            session.requestOptions()),
                        progress.get());
      bool ran = reply.attempt == Attempt::Made;
      session.sayJSON(request.add("success", ran).add("process", std::int64_t{reply.toolProcess}));
      session.say("The repair tool has ended, process " + std::to_string(reply.toolProcess));
      return ran ? ExitDone : ExitRefused;
    });
  };
}

CommandTable allVerbs() {
  return {
      flagVerb("erase-asl", "Erase the system log store",
               {{"maintenance erase-asl", "empties /var/log/asl"}}, asked(&Client::removeASLAsync),
               {"Erased the system log store", "the system log store could not be erased"},
               {"Erase the system log store for good?", "Would erase the system log store"}),
      {"erase-unified-log",
       "Erase the unified log",
       declareEraseUnifiedLog,
       {{"maintenance erase-unified-log", "all of it, for good"}}},
      flagVerb("flush-dns", "Flush the caches of names",
               {{"maintenance flush-dns", "so that changed names are looked up again"}},
               asked(&Client::flushDNSAsync),
               {"Flushed the caches of names", "the caches of names could not be flushed"}),
      {"periodic",
       "Run the periodic maintenance scripts",
       declarePeriodic,
       {{"maintenance periodic daily", "runs the daily scripts now"}}},
      flagVerb("reindex-spotlight", "Have the search index rebuilt",
               {{"maintenance reindex-spotlight", "returns at once; the index takes its time"}},
               asked(&Client::startSpotlightReindexAsync),
               {"Asked for a new search index", "a new search index could not be asked for"}),
      {"repair-permissions",
       "Repair the permissions of the system's packages",
       declareRepairPermissions,
       {{"maintenance repair-permissions", "on a terminal, shows the tool's output"}}},
  };
}

CommandTable verbs() {
  CommandTable table = allVerbs();
  for (Command &verb : table) {
    std::string_view name = verb.name;
    if (name == "erase-asl")
      verb.file = tools::logStore;
    else if (name == "erase-unified-log")
      verb.tools = {tools::log};
    else if (name == "flush-dns")
      verb.tools = {tools::dscacheutil, tools::discoveryutil};
    else if (name == "periodic")
      verb.tools = {tools::periodic};
    else if (name == "reindex-spotlight")
      verb.tools = {tools::mdutil};
    else if (name == "repair-permissions")
      verb.tools = {tools::repairPackages};
  }
  return table;
}

} // namespace

CommandTable maintenanceCommands() {
  return {{"maintenance",
           "Maintain logs, caches, indexes and permissions",
           nullptr,
           {{"maintenance flush-dns", "one of several things to maintain"}},
           verbs()}};
}

} // namespace kw
