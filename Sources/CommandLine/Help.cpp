// Wraps paragraphs, and rows of two columns.
#include "CommandLine/Help.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace kw {
namespace {

constexpr std::size_t width = 80;
constexpr std::size_t secondColumn = 30;

constexpr const char *exitStatuses =
    "Exit status: 0 done, 1 not done, 2 usage, 3 no answer from the agent, 130 stopped by ^C.";

// The words with line ends instead of some of the spaces; the first line has
// room from the column on, the others start at the indent.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t column) {
  std::string result;
  while (!text.empty()) {
    std::size_t end = std::min(text.find(' '), text.size());
    std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (column > indent && column + 1 + word.size() > width) {
      result += fmt::format("\n{:{}}", "", indent);
      column = indent;
    } else if (column > indent) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
  }
  return result;
}

// Lines that end on purpose stay as they are.
std::string paragraphs(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    std::size_t end = std::min(text.find('\n'), text.size());
    result += wrapped(text.substr(0, end), 0, 0) + "\n";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

std::string row(const std::string &first, std::string_view second) {
  bool fits = first.size() + 4 <= secondColumn;
  return fmt::format("  {:{}}{}{:{}}{}\n", first, fits ? secondColumn - 2 : 0, fits ? "" : "\n", "",
                     fits ? 0 : secondColumn, wrapped(second, secondColumn, secondColumn));
}

std::string titled(const std::string &title, const std::string &rows) {
  return rows.empty() ? "" : fmt::format("\n{}:\n{}", title, rows);
}

std::string namesOf(const Argument &option) {
  std::string text;
  for (const std::string &name : option.names)
    text.append(text.empty() ? "" : ", ").append(name);
  return option.isFlag() ? text : fmt::format("{} {}", text, option.value);
}

std::string optionRows(const Arguments &arguments) {
  std::string rows;
  for (const Argument &option : arguments.allOptions())
    if (!option.hidden)
      rows += row(namesOf(option), option.help);
  return rows;
}

std::string operandRows(const Arguments &arguments) {
  std::string rows;
  for (const Argument &operand : arguments.allOperands())
    rows += row(operand.value, operand.help);
  return rows;
}

std::string usageOf(const DeclaredCommand &command) {
  std::string text = fmt::format("Usage: keepwell {}", command.words);
  if (!command.arguments.allOptions().empty())
    text += " [OPTIONS]";
  for (const Argument &option : command.arguments.allOptions())
    if (option.required)
      text += fmt::format(" {} {}", option.names.back(), option.value);
  for (const Argument &operand : command.arguments.allOperands())
    text += fmt::format(" {}{}{}{}", operand.required ? "" : "[", operand.value,
                        operand.required ? "" : "]", operand.repeatable ? "..." : "");
  if (const std::string &value = command.arguments.valueBehind(); !value.empty())
    text += fmt::format(" [{}]...", value);
  return text + "\n";
}

std::string exampleRows(const Command &command) {
  std::string rows;
  for (const Example &example : command.examples)
    rows += fmt::format("  keepwell {}\n      {}\n", example.line, wrapped(example.meaning, 6, 6));
  return rows;
}

std::string commandRows(const std::vector<const DeclaredCommand *> &commands) {
  std::string rows;
  for (const DeclaredCommand *command : commands)
    rows += row(command->words, command->command->summary);
  return rows;
}

std::string groupsOf(const std::vector<const DeclaredCommand *> &all) {
  std::string text;
  for (auto first = all.begin(); first != all.end();) {
    auto end = std::find_if(first, all.end(), [&](const DeclaredCommand *each) {
      return std::string_view(each->group) != (*first)->group;
    });
    text += titled((*first)->group, commandRows({first, end}));
    first = end;
  }
  return text;
}

// The commands that work here, and those for which something is missing.
std::string commandsOf(const DeclaredCommand &top, const Surroundings &surroundings) {
  std::vector<const DeclaredCommand *> all = runnableBelow(top);
  auto absent = std::stable_partition(all.begin(), all.end(), [&](const DeclaredCommand *each) {
    return missingFor(*each->command, surroundings).empty();
  });
  std::string rows;
  for (auto each = absent; each != all.end(); ++each)
    rows += row((*each)->words, "needs " + missingFor(*(*each)->command, surroundings));
  return groupsOf({all.begin(), absent}) + titled("Not available on this system", rows);
}

std::string helpForProgram(const DeclaredCommand &top, const Surroundings &surroundings) {
  return paragraphs(fmt::format("{}\n", top.command->summary)) +
         "Usage: keepwell [OPTIONS] COMMAND [ARGUMENTS]\n" + commandsOf(top, surroundings) +
         titled("Options of every command", optionRows(top.arguments)) +
         paragraphs(fmt::format("\n{}", generalNote()));
}

std::string needOf(const Command &command, const Surroundings &surroundings) {
  std::string missing = missingFor(command, surroundings);
  return missing.empty() ? "" : fmt::format("\nIt needs {}, which this system lacks.\n", missing);
}

} // namespace

std::string firstMinute() {
  return "Keepwell shows where the space goes, and cleans up.  All of it: keepwell --help\n"
         "  keepwell browse ~            explore your home full-screen, and clean up\n"
         "  keepwell size --children ~   the items of your home, the largest first\n"
         "  keepwell find NAME           the leftovers of an application\n"
         "  keepwell remove -n PATH      a trial; without -n it asks, then removes\n";
}

std::string generalNote() {
  return std::string(
             "Relative paths are taken from the current folder. "
             "After a lone -- each word is a name, with dashes or without.\n"
             "Before work that cannot be undone the command asks on its terminal, unless --yes "
             "is given; without a terminal it does the work at once.\n") +
         exitStatuses +
         "\nshare/keepwell/keepwell-output.schema.json describes the output of --json.\n"
         "keepwell COMMAND --help describes a command, with examples.";
}

std::string helpFor(const Program &program, const DeclaredCommand &command,
                    const Surroundings &surroundings) {
  if (&command == &program.top())
    return helpForProgram(command, surroundings);
  const Command &what = *command.command;
  std::string text = paragraphs(fmt::format("{}.\n", what.summary));
  if (command.run)
    text += usageOf(command) + titled("Arguments", operandRows(command.arguments)) +
            titled("Options", optionRows(command.arguments));
  else
    text += fmt::format("Usage: keepwell {} COMMAND [ARGUMENTS]\n", command.words);
  text += titled("Commands", commandRows(runnableBelow(command)));
  text += titled("Options of every command", optionRows(program.top().arguments));
  text += paragraphs(fmt::format("{}{}", *what.note ? "\n" : "", what.note));
  text += needOf(what, surroundings);
  return text + titled("Examples", exampleRows(what)) +
         paragraphs(fmt::format("\n{}", exitStatuses));
}

} // namespace kw
