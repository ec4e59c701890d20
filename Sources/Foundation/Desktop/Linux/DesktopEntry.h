// The two keys of a desktop entry that the agent needs: its name, and the command
// line of the program that it starts.
//
// Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NS {

struct DesktopEntry {
  std::optional<std::string> name; // without a translation
  std::optional<std::string> exec; // the command line, still quoted
};

// Reads the "Desktop Entry" group; of a repeated key the last value counts.
// Every text reads as some entry; missing keys are absent.
DesktopEntry desktopEntryFromText(std::string_view text);

// The arguments of a command line: quotes resolved, field codes dropped. Empty
// when a quote does not end.
std::optional<std::vector<std::string>> argumentsOfExec(std::string_view exec);

} // namespace NS
