// Commands that maintain the whole system.
#include "CommandLine/Command.h"
#include "CommandLine/Outcome.h"

#include <memory>

namespace kw {
namespace {

using FlagOperation = std::function<Told(Session &)>;

template <typename Reply> FlagOperation asked(Reply (Client::*operation)(const RequestOptions &)) {
  return [operation](Session &session) {
    return Told((session.agent().*operation)(session.requestOptions()));
  };
}

JSONObject requestOf(const std::string &verb) {
  JSONObject request;
  request.add("command", "maintenance " + verb);
  return request;
}

// A verb without arguments, answered with a flag.
Command flagVerb(const char *verb, const char *summary, std::vector<Example> examples,
                 const FlagOperation &operation, const Wording &wording,
                 const char *question = nullptr) {
  return {verb, summary,
          [=](Arguments &arguments) -> CommandRun {
            auto yes = question ? declareYes(arguments) : nullptr;
            return [=](Session &session) {
              if (question)
                session.confirm(question, *yes);
              JSONObject request = requestOf(verb);
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
      Told reply = session.agent().runPeriodicScript(*name, session.requestOptions());
      return tellOutcome(session, request, reply,
                         {"Ran the periodic scripts " + displayable(*name),
                          displayable(*name) + " could not be run"});
    });
  };
}

// The tool's own words, if any, with the line's end left to the caller.
std::string wordsOf(std::string text) {
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  return displayable(text);
}

std::string failureOf(const LogErasureReply &reply) {
  if (reply.error)
    return displayable(reply.error->localizedDescription());
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
    session.say(wordsOf(*reply.output));
  if (reply.errorOutput)
    session.complain(wordsOf(*reply.errorOutput));
  if (reply.isErased())
    session.say("Erased the unified log");
  else
    session.complain("the unified log could not be erased: " + failureOf(reply));
  return reply.isErased() ? ExitDone : ExitRefused;
}

CommandRun declareEraseUnifiedLog(Arguments &arguments) {
  auto yes = declareYes(arguments);
  return [yes](Session &session) {
    session.confirm("Erase the unified log for good?", *yes);
    JSONObject request = requestOf("erase-unified-log");
    return reportingFailures(session, request, [&] {
      return tellErasure(session, request,
                         session.agent().removeDiagnosticLogs(session.requestOptions()));
    });
  };
}

// Shows what the repair tool writes, on a line of its own in the end.
class RepairProgress {
public:
  explicit RepairProgress(Session &session) : session_(session) {}

  void show(const std::string &chunk) {
    if (chunk.empty()) // the end of the output
      return;
    session_.sayJSON(requestOf("repair-permissions").add("progress", chunk));
    session_.show(chunk);
    session_.flush();
    lineIsOpen_ = chunk.back() != '\n';
  }
  void closeLine() {
    if (lineIsOpen_)
      session_.show("\n");
  }

private:
  Session &session_;
  bool lineIsOpen_ = false;
};

CommandRun declareRepairPermissions(Arguments & /*arguments*/) {
  return [](Session &session) {
    JSONObject request = requestOf("repair-permissions");
    return reportingFailures(session, request, [&] {
      RepairProgress progress(session);
      RepairReply reply = session.agent().repairPermissions(
          [&progress](const std::string &chunk) { progress.show(chunk); },
          session.requestOptions());
      progress.closeLine();
      bool ran = reply.attempt == Attempt::Made;
      session.sayJSON(request.add("success", ran).add("process", std::int64_t{reply.toolProcess}));
      session.say("The repair tool has ended, process " + std::to_string(reply.toolProcess));
      return ran ? ExitDone : ExitRefused;
    });
  };
}

CommandTable verbs() {
  return {
      flagVerb("erase-asl", "Erase the system log store",
               {{"maintenance erase-asl", "empties /var/log/asl"}}, asked(&Client::removeASL),
               {"Erased the system log store", "the system log store could not be erased"},
               "Erase the system log store for good?"),
      {"erase-unified-log",
       "Erase the unified log",
       declareEraseUnifiedLog,
       {{"maintenance erase-unified-log", "all of it, for good"}}},
      flagVerb("flush-dns", "Flush the caches of names",
               {{"maintenance flush-dns", "so that changed names are asked for anew"}},
               asked(&Client::flushDNS),
               {"Flushed the caches of names", "the caches of names could not be flushed"}),
      {"periodic",
       "Run the periodic maintenance scripts",
       declarePeriodic,
       {{"maintenance periodic daily", "runs what would run at night"}}},
      flagVerb("reindex-spotlight", "Have the search index built anew",
               {{"maintenance reindex-spotlight", "returns at once; the index takes its time"}},
               asked(&Client::startSpotlightReindex),
               {"Asked for a new search index", "a new search index could not be asked for"}),
      {"repair-permissions",
       "Repair the permissions of the system's packages",
       declareRepairPermissions,
       {{"maintenance repair-permissions", "shows on a terminal what the tool says"}}},
  };
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
