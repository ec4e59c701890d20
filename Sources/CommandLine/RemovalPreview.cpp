// Plans, added up.
#include "CommandLine/RemovalPreview.h"

#include "CommandLine/Outcome.h"

#include <fmt/format.h>

namespace kw {
namespace {

struct Total {
  std::size_t paths = 0;
  std::size_t kept = 0;
  std::uint64_t items = 0;
  std::uint64_t allocated = 0;
  std::uint64_t freed = 0;
  bool isAtLeast = false; // some could not be counted

  void add(const RemovalPlan &plan) {
    paths += plan.exists ? 1 : 0;
    kept += plan.kept.size();
    items += plan.items;
    allocated += plan.allocatedBytes;
    freed += plan.freedBytes;
    isAtLeast = isAtLeast || !plan.unknown.empty() || !plan.measured.empty();
  }
  std::string itemsInWords() const {
    return fmt::format("{}{} {}", isAtLeast ? "at least " : "", items,
                       items == 1 ? "item" : "items");
  }
};

JSONObject jsonOfPlan(const char *command, const std::string &path, const RemovalPlan &plan) {
  JSONObject object = pathRequest(command, path);
  object.add("dryRun", true).add("success", plan.refusals.empty());
  if (!plan.refusals.empty())
    object.add("error", jsonOfReason(plan.refusals.front()));
  return object.addNames("remove", plan.roots)
      .addNames("kept", plan.kept)
      .addNames("unknown", plan.unknown)
      .addNames("measured", plan.measured)
      .add("items", plan.items)
      .add("allocated", plan.allocatedBytes)
      .add("freed", plan.freedBytes);
}

int tellPlan(Session &session, const PreviewWording &wording, const std::string &path,
             const RemovalPlan &plan) {
  JSONObject object = jsonOfPlan(wording.command, path, plan);
  if (plan.refusals.empty())
    session.sayJSON(object);
  else
    session.sayFailure(object);
  if (!plan.exists)
    session.say(path + " is not there");
  for (const std::string &root : plan.roots)
    session.say(wording.would + root);
  for (const std::string &kept : plan.kept)
    session.say("Would keep " + kept);
  for (const std::string &unknown : plan.unknown)
    session.complain(unknown + " cannot be looked into; what it holds is not counted");
  for (const std::string &refusal : plan.refusals)
    session.complain(refusal);
  return plan.refusals.empty() ? ExitDone : ExitRefused;
}

std::string namesOf(const std::vector<std::string> &paths) {
  constexpr std::size_t mostNamed = 5;
  std::string names;
  for (std::size_t index = 0; index < paths.size() && index < mostNamed; ++index)
    names.append(index > 0 ? ", " : "").append(paths[index]);
  if (paths.size() > mostNamed)
    names += fmt::format(" and {} more", paths.size() - mostNamed);
  return names;
}

} // namespace

Measure measuringByAgent(Session &session) {
  return [&session](const std::string &path) -> std::optional<std::uint64_t> {
    try {
      auto request = session.agent().sizeOfItemAtPathAsync(path, session.requestOptions());
      SizeReply reply = session.await(request);
      return reply.error ? std::nullopt : std::optional(reply.allocatedBytes);
    } catch (const ClientError &) {
      return std::nullopt; // what could not be counted is told as such
    }
  };
}

int previewRemoval(Session &session, const PathArguments &arguments, const KeepList &keep,
                   const PreviewWording &wording) {
  RemovalPlanner planner(keep, RemovalPlanner::Volumes::One, measuringByAgent(session));
  Total total;
  PathSource source(session, arguments);
  int status = tellForEachPath(session, wording.command, source, [&](const std::string &path) {
    RemovalPlan plan = planner.plan(path);
    if (!wording.freesSpace)
      plan.freedBytes = 0;
    total.add(plan);
    return tellPlan(session, wording, path, plan);
  });
  session.say(fmt::format("{}, {} on disk, {} would be freed", total.itemsInWords(),
                          sizeInWords(total.allocated), sizeInWords(total.freed)));
  JSONObject object;
  object.add("items", total.items).add("allocated", total.allocated).add("freed", total.freed);
  session.sayJSON(JSONObject()
                      .add("command", wording.command)
                      .add("dryRun", true)
                      .add("success", true)
                      .add("total", object));
  return status;
}

void confirmRemoval(Session &session, const char *verb, const std::vector<std::string> &paths,
                    const KeepList &keep) {
  RemovalPlanner planner(keep, RemovalPlanner::Volumes::One, measuringByAgent(session));
  Total total;
  std::vector<std::string> there;
  for (const std::string &path : paths) {
    RemovalPlan plan = planner.plan(path);
    total.add(plan);
    if (plan.exists)
      there.push_back(path);
  }
  if (total.paths == 0)
    return;
  std::string kept = total.kept > 0 ? fmt::format(", keeping {}", total.kept) : "";
  session.confirm(fmt::format("{} {}{}: {}, {}?", verb, namesOf(there), kept, total.itemsInWords(),
                              sizeInWords(total.allocated)),
                  false);
}

} // namespace kw
