// The command that shows a tree full-screen.
#include "CommandLine/BrowseCommand.h"

#include "CommandLine/Browser.h"
#include "CommandLine/Look.h"
#include "CommandLine/Outcome.h"

#include <memory>

namespace kw {
namespace {

int browse(Session &session, const std::string &path) {
  if (presenceOf(path) == Presence::Missing) {
    session.complain(path + ": there is nothing there");
    return ExitRefused;
  }
  Alarm::Heeding heeding(*session.alarm());
  auto screen = session.openScreen();
  if (!screen)
    throw UsageError("browse needs a terminal that can move its cursor");
  return Browser(session, *screen).browse(path);
}

CommandRun declareBrowse(Arguments &arguments) {
  auto path = std::make_shared<std::string>(".");
  arguments.operand("path", *path, "PATH", "The folder to look at; without it the current one")
      .required = false;
  return [path](Session &session) {
    std::string whole = absolutePath(*path);
    while (whole.size() > 1 && (whole.ends_with('/') || whole.ends_with("/.")))
      whole.pop_back();
    return browse(session, whole);
  };
}

} // namespace

Command browseCommand() {
  return {"browse",
          "Look around full-screen for large items, and clean up",
          declareBrowse,
          {{"browse ~", "arrows lead in and out, space marks, d trashes, r removes, q leaves"},
           {"browse /", "the agent measures folders that you cannot read"}},
          {},
          "Sorted by size, name, time or items with s, n, t and i; a dot shows hidden items or "
          "not, and / finds a name. Before anything goes, one question tells how many items, what "
          "they take and what that frees. Protected folders stay. A size with ~ behind it was "
          "measured by the agent or is not whole."};
}

} // namespace kw
