// The command that shows sizes: of whole items as the agent counts them, or of
// trees level by level.
#include "CommandLine/SizeCommand.h"

#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPreview.h"
#include "CommandLine/SizeReport.h"
#include "Foundation/Trees/FileManager.h"
#include "Tools/RVFileSizer.h"

#include <fmt/format.h>
#include <memory>

namespace kw {
namespace {

struct SizeOptions {
  bool bytes = false;
  bool base2 = false;
  bool si = false;
  bool iec = false;
  bool local = false;
  bool logical = false;
  bool bulk = false;
  bool once = false;
  bool children = false;
  bool total = false;
  MeasuringOptions measuring{};
  SizeReport report{};
  std::string depth{}, most{}, least{}; // as they were given

  // Whether the tree is to be measured here, as du counts.
  bool wantsTree() const {
    return once || children || total || measuring.oneVolume || measuring.apparent ||
           !measuring.excluded.empty() || !depth.empty() || !most.empty() || !least.empty();
  }
};

void declareUnits(Arguments &arguments, SizeOptions &options) {
  arguments.flag("--bytes", options.bytes, "Print plain numbers of bytes");
  arguments.flag("--base2", options.base2, "Count in steps of 1024, not 1000");
  arguments.flag("--si", options.si, "Print kB, MB and so on, in steps of 1000");
  arguments.flag("--iec", options.iec, "Print KiB, MiB and so on, in steps of 1024");
}

void declareTree(Arguments &arguments, SizeOptions &options) {
  arguments.flag("--children", options.children, "Show the size of each item in a folder, sorted");
  arguments.option("-d,--depth", options.depth, "LEVELS",
                   "Like --children, but for this many levels of folders",
                   storesNumber(options.measuring.depth, 0));
  arguments.option("-n,--largest", options.most, "NUMBER",
                   "Show only the NUMBER largest items of each folder",
                   storesNumber<std::size_t>(options.report.most, 1));
  arguments.option("--min", options.least, "SIZE",
                   "Show only items that take at least SIZE, such as 10M",
                   storesBytes(options.report.least));
  arguments.flag("--total", options.total, "Show the sum of all paths at the end");
  arguments.flag("-x,--one-volume", options.measuring.oneVolume,
                 "Leave out other volumes mounted inside");
  arguments.option("--exclude", options.measuring.excluded, "PATTERN",
                   "Leave out matching items; patterns as for remove --keep; may be given again",
                   refuseEmpty);
  arguments.flag("--apparent", options.measuring.apparent,
                 "Count the lengths of files, not the space that they occupy");
}

std::shared_ptr<SizeOptions> declareOptions(Arguments &arguments) {
  auto options = std::make_shared<SizeOptions>();
  declareUnits(arguments, *options);
  Argument &local =
      arguments.flag("--local", options->local, "Measure with your own rights, without the agent");
  arguments
      .flag("--logical", options->logical,
            "Count the lengths of files, in whole I/O blocks, not the space that they occupy")
      .needs = &local;
  arguments
      .flag(
          "--bulk", options->bulk,
          "Read the attributes of a whole folder at a time; counts the lengths of files and links, "
          "and nothing for folders")
      .needs = &local;
  arguments.flag("--once", options->once,
                 "Count as du and remove --dry-run do: each folder once, and a file with several "
                 "hard links once");
  declareTree(arguments, *options);
  return options;
}

// Throws UsageError for options that do not go together.
void settle(SizeOptions &options) {
  if (options.bytes + options.base2 + options.si + options.iec > 1)
    throw UsageError("--bytes, --base2, --si and --iec exclude each other");
  if (options.wantsTree() && (options.logical || options.bulk))
    throw UsageError("--logical and --bulk cannot be combined with options that count as du does");
  if (options.bytes)
    options.report.units = Units::Plain;
  else if (options.base2)
    options.report.units = Units::Base2;
  else if (options.si || options.iec)
    options.report.units = options.si ? Units::SI : Units::IEC;
  bool wantsLevels = options.children || !options.most.empty() || !options.least.empty();
  if (options.depth.empty())
    options.measuring.depth = wantsLevels ? 1 : 0;
}

int tellSize(Session &session, const SizeReport &report, const std::string &path,
             JSONObject request, std::uint64_t size) {
  session.say(sizeInWords(size, report.units), path);
  session.sayJSON(request.add("success", true).add("bytes", size).add("text", report.text(size)));
  return ExitDone;
}

// The measuring itself answers 0 for a missing item; a person wants to know.
int tellMissing(Session &session, JSONObject request, const std::string &path) {
  const char *reason = "there is nothing there";
  session.sayFailure(request.add("success", false).add("error", jsonOfReason(reason)));
  session.complain(fmt::format("{}: {}", path, reason));
  return ExitRefused;
}

// Only the agent sees into a folder that is closed to this user.
bool isMissing(Session &session, const AskedPath<SizeReply> &asked) {
  if (asked.reply().allocatedBytes > 0 || asked.before != Presence::Unknown)
    return asked.before == Presence::Missing && asked.reply().allocatedBytes == 0;
  return session.await(session.agent().fileExistsAtPathAsync(asked.path, session.requestOptions()))
             .existence == Existence::Missing;
}

void tellTotal(Session &session, const SizeOptions &options, const MeasuredItem &sum) {
  session.say(sizeInWords(sum.bytes, options.report.units), "total");
  JSONObject total;
  total.add("items", sum.items).add("allocated", sum.bytes);
  session.sayJSON(JSONObject().add("command", "size").add("success", true).add("total", total));
}

int measureTree(Session &session, const SizeOptions &options, TreeMeasurer &measurer,
                const std::string &path, MeasuredItem &sum) {
  JSONObject request = pathRequest("size", path);
  auto tree = measurer.measure(path);
  if (!tree)
    return tellMissing(session, request, path);
  for (const std::string &unseen : tree->unseen)
    session.complain(unseen + " cannot be read; its contents are not counted");
  if (!tree->isWhole)
    session.complain(path + " could not be read to its end; the rest is not counted");
  options.report.say(session, path, tree->root);
  request.add("success", true);
  session.sayJSON(options.report.add(request, tree->root));
  sum.bytes += tree->root.bytes;
  sum.items += tree->root.items;
  return tree->isWhole ? ExitDone : ExitRefused;
}

int measureTrees(Session &session, const SizeOptions &options, const PathArguments &arguments) {
  TreeMeasurer measurer(options.measuring, options.local ? nullptr : measuringByAgent(session),
                        showingAdvance(session));
  MeasuredItem sum;
  sum.items = 0;
  PathSource source(session, arguments);
  int status = tellForEachPath(session, "size", source, [&](const std::string &path) {
    return measureTree(session, options, measurer, path, sum);
  });
  if (options.total && !session.isStopped())
    tellTotal(session, options, sum);
  return status;
}

// With the rights of the user who runs the command.
int measureHere(Session &session, const SizeOptions &options, const std::string &path) {
  JSONObject request = pathRequest("size", path);
  std::optional<NS::Error> error;
  if (!NS::FileManager::defaultManager().attributesOfItemAtPath(path, &error))
    return presenceOf(path) == Presence::Missing
               ? tellMissing(session, request, path)
               : tellOutcome(session, request, {false, error},
                             {"", path + " could not be measured", path});
  const RVFileSizer &sizer = RVFileSizer::shared();
  return tellSize(session, options.report, path, request,
                  options.bulk ? sizer.alternativeItemSizeAtPath(path)
                               : sizer.itemSizeAtPath(path));
}

int measureAllHere(Session &session, const SizeOptions &options, const PathArguments &arguments) {
  if (options.logical)
    RVFileSizer::shared().setReturnUncompressedFileSize(true);
  PathSource source(session, arguments);
  int status = tellForEachPath(session, "size", source, [&](const std::string &path) {
    return measureHere(session, options, path);
  });
  RVFileSizer::shared().setReturnUncompressedFileSize(false);
  return status;
}

PathQuestion<SizeReply> question(const std::shared_ptr<SizeOptions> &options) {
  PathQuestion<SizeReply> question;
  question.command = "size";
  question.participle = "measured";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &request) {
    return agent.sizeOfItemAtPathAsync(path, request);
  };
  question.tell = [options](Session &session, const AskedPath<SizeReply> &asked,
                            const JSONObject &request) {
    const SizeReply &reply = asked.reply();
    if (reply.error)
      return tellOutcome(session, request, {false, reply.error},
                         {"", asked.path + " could not be measured", asked.path});
    if (isMissing(session, asked))
      return tellMissing(session, request, asked.path);
    return tellSize(session, options->report, asked.path, request, reply.allocatedBytes);
  };
  return question;
}

CommandRun declareSize(Arguments &arguments) {
  auto options = declareOptions(arguments);
  auto paths = declarePaths(arguments);
  return [options, paths](Session &session) {
    requirePaths(*paths);
    settle(*options);
    if (options->wantsTree())
      return measureTrees(session, *options, *paths);
    if (options->local)
      return measureAllHere(session, *options, *paths);
    PathSource source(session, *paths);
    return PathAsker<SizeReply>(session, source, question(options)).run();
  };
}

} // namespace

Command sizeCommand() {
  return {"size",
          "Show the space that items take on disk, level by level if you like",
          declareSize,
          {{"size --children ~", "the items of your home, the largest first"},
           {"size -d 2 -n 5 /var", "the five largest of each folder, two levels deep"},
           {"size /usr /var", "a line for each, as the agent counts"},
           {"size --bytes ~/Downloads", "a plain number"},
           {"size --once ~/Downloads", "as du counts"},
           {"size --local ~", "measured with your own rights, without the agent"}},
          {},
          "The agent counts each folder twice, and a file with several hard links once for each "
          "link, so its sizes are larger than those of du. With --once, and with each option that "
          "shows contents, adds up or leaves out items, folders and files count once, as in du; "
          "the agent then measures the folders that you cannot read, unless --local is given."};
}

} // namespace kw
