// Adds up the plans of all paths and tells them.
#include "CommandLine/RemovalPreview.h"

#include "CommandLine/ProtectedPaths.h"
#include "CommandLine/Quantities.h"

#include <fmt/format.h>

namespace kw {
namespace {

std::vector<JSONObject> jsonOfLargest(const LargestItems &items) {
  std::vector<JSONObject> objects;
  for (const LargeItem &item : items.sorted())
    objects.push_back(JSONObject().addName("path", item.path).add("bytes", item.bytes));
  return objects;
}

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
      .add("freed", plan.freedBytes)
      .add("largest", jsonOfLargest(plan.largest));
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
    session.complain(unknown + " cannot be read; its contents are not counted");
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

RemovalPlan planned(RemovalPlanner &planner, const PreviewWording &wording,
                    const std::string &path) {
  if (auto refusal = protectionOf(path); refusal && !wording.mayTakeProtected) {
    RemovalPlan plan;
    plan.exists = true;
    plan.refusals.push_back(*refusal);
    return plan;
  }
  RemovalPlan plan = planner.plan(path);
  if (!wording.freesSpace)
    plan.freedBytes = 0;
  return plan;
}

} // namespace

void RemovalSum::add(const RemovalPlan &plan) {
  paths += plan.exists ? 1 : 0;
  kept += plan.kept.size();
  items += plan.items;
  allocated += plan.allocatedBytes;
  freed += plan.freedBytes;
  isAtLeast = isAtLeast || !plan.unknown.empty() || !plan.measured.empty();
  largest.add(plan.largest);
}

std::string RemovalSum::itemsInWords() const {
  return (isAtLeast ? "at least " : "") + kw::itemsInWords(items);
}

std::vector<std::string> RemovalSum::largestInWords() const {
  std::vector<std::string> lines;
  if (items < 2)
    return lines;
  for (const LargeItem &item : largest.sorted())
    lines.push_back(fmt::format("{:>10}  {}", sizeInWords(item.bytes), item.path));
  return lines;
}

int previewRemoval(Session &session, const PathArguments &arguments, const KeepList &keep,
                   const PreviewWording &wording) {
  RemovalPlanner planner(keep, measuringByAgent(session), showingAdvance(session));
  RemovalSum sum;
  PathSource source(session, arguments);
  int status = tellForEachPath(session, wording.command, source, [&](const std::string &path) {
    RemovalPlan plan = planned(planner, wording, path);
    sum.add(plan);
    return tellPlan(session, wording, path, plan);
  });
  if (session.isStopped()) // the sum would be that of a part
    return status;
  for (const std::string &line : sum.largestInWords())
    session.say(line);
  session.say(fmt::format("{}, {} on disk, {} would be freed", sum.itemsInWords(),
                          sizeInWords(sum.allocated), sizeInWords(sum.freed)));
  JSONObject object;
  object.add("items", sum.items).add("allocated", sum.allocated).add("freed", sum.freed);
  session.sayJSON(JSONObject()
                      .add("command", wording.command)
                      .add("dryRun", true)
                      .add("success", true)
                      .add("total", object));
  return status;
}

RemovalSum confirmRemoval(Session &session, const char *verb, const std::vector<std::string> &paths,
                          const KeepList &keep, bool mayTakeProtected) {
  RemovalPlanner planner(keep, measuringByAgent(session), showingAdvance(session));
  RemovalSum sum;
  std::vector<std::string> there;
  for (const std::string &path : paths) {
    if (!mayTakeProtected && protectionOf(path))
      continue; // will be refused
    RemovalPlan plan = planner.plan(path);
    sum.add(plan);
    if (plan.exists)
      there.push_back(path);
  }
  if (sum.paths == 0 || session.isStopped())
    return sum;
  std::string kept = sum.kept > 0 ? fmt::format(", keeping {}", sum.kept) : "";
  session.confirm(fmt::format("{} {}{}: {}, {}?", verb, namesOf(there), kept, sum.itemsInWords(),
                              sizeInWords(sum.allocated)),
                  false, sum.largestInWords());
  return sum;
}

void confirmProtected(Session &session, const char *verb, const std::vector<std::string> &paths) {
  for (const std::string &path : paths)
    if (protectionOf(path))
      session.confirmTyped(
          fmt::format("{} is protected. {} it with all that it holds? Type its path: ", path, verb),
          path);
}

} // namespace kw
