// The command that shows a tree full-screen.
#include "CommandLine/BrowseCommand.h"

#include "CommandLine/Browser.h"
#include "CommandLine/Look.h"
#include "CommandLine/Outcome.h"

#include <filesystem>
#include <memory>

namespace kw {
namespace {

// A link to a folder leads into it.
std::string followed(const std::string &path) {
  std::error_code failure;
  bool isLink = std::filesystem::is_symlink(path, failure);
  auto folder = isLink ? std::filesystem::canonical(path, failure) : std::filesystem::path(path);
  return failure ? path : folder.string();
}

// Unless it cannot be seen: then the agent measures it.
bool isOtherThanFolder(const std::string &path) {
  std::error_code failure;
  return !std::filesystem::is_directory(path, failure) && !failure;
}

int browse(Session &session, const std::string &path) {
  if (session.json())
    throw UsageError("browse is for a person and prints no JSON");
  bool isMissing = presenceOf(path) == Presence::Missing;
  if (isMissing || isOtherThanFolder(path)) {
    session.complain(path + (isMissing ? ": there is nothing there" : " is not a folder"));
    return ExitRefused;
  }
  Alarm::Heeding heeding(*session.alarm());
  auto screen = session.openScreen();
  if (!screen)
    throw UsageError("browse needs a terminal that can move its cursor");
  int status = Browser(session, *screen).browse(path);
  screen.reset();
  if (status == ExitRefused)
    session.complain(path + " could not be measured");
  return status;
}

CommandRun declareBrowse(Arguments &arguments) {
  auto path = std::make_shared<std::string>(".");
  arguments.operand("path", *path, "PATH", "The folder to explore; by default the current one")
      .required = false;
  return [path](Session &session) {
    std::string whole = absolutePath(*path);
    while (whole.size() > 1 && (whole.ends_with('/') || whole.ends_with("/.")))
      whole.pop_back();
    return browse(session, followed(whole));
  };
}

} // namespace

Command browseCommand() {
  return {"browse",
          "Explore a folder full-screen, and clean up",
          declareBrowse,
          {{"browse ~", "arrows lead in and out, space marks, d trashes, r removes, q leaves"},
           {"browse /", "the agent measures folders that you cannot read"}},
          {},
          "The keys s, n, t and i sort by size, name, time and number of items; a dot hides or "
          "shows hidden items, / finds a name, and ? lists all keys. Before it changes a file, one "
          "question gives the number of items, their size and the space that becomes free. "
          "Protected folders stay. A ~ after a size means that the agent measured a part of it, or "
          "that a part could not be measured."};
}

} // namespace kw
