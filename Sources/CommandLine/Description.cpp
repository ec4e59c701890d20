// Out of what the parser knows of each option.
#include "CommandLine/Description.h"

#include "Foundation/Identity.h"

#include <CLI/CLI.hpp>

namespace kw {
namespace {

std::vector<std::string> namesOf(const CLI::Option &option) {
  std::vector<std::string> names;
  for (const std::string &name : option.get_snames())
    names.push_back("-" + name);
  for (const std::string &name : option.get_lnames())
    names.push_back("--" + name);
  return names;
}

bool isFlag(const CLI::Option &option) {
  return option.get_items_expected_max() == 0;
}

JSONObject describe(const CLI::Option &option) {
  JSONObject object;
  if (option.get_positional())
    object.add("name", option.get_name(true));
  else
    object.add("names", namesOf(option));
  return object.add("value", isFlag(option) ? "" : option.get_type_name())
      .add("help", option.get_description())
      .add("required", option.get_required())
      .add("repeatable", option.get_items_expected_max() > 1);
}

struct Described {
  std::vector<JSONObject> arguments;
  std::vector<JSONObject> options;
};

Described describe(const CLI::App &app) {
  Described described;
  for (const CLI::Option *option : app.get_options())
    if (option->get_positional())
      described.arguments.push_back(describe(*option));
    else if (!option->get_group().empty()) // those without are hidden
      described.options.push_back(describe(*option));
  return described;
}

std::vector<JSONObject> describe(const std::vector<Example> &examples) {
  std::vector<JSONObject> objects;
  objects.reserve(examples.size());
  for (const Example &example : examples)
    objects.push_back(JSONObject()
                          .add("line", std::string("keepwell ") + example.line)
                          .add("meaning", example.meaning));
  return objects;
}

// Nouns are told before their verbs.
void describe(const CLI::App &parent, const Command &command, std::vector<std::string> words,
              std::vector<JSONObject> &found) {
  const CLI::App *app = parent.get_subcommand(command.name);
  words.emplace_back(command.name);
  Described described = describe(*app);
  found.push_back(JSONObject()
                      .add("words", words)
                      .add("summary", command.summary)
                      .add("note", command.note)
                      .add("group", app->get_group())
                      .add("arguments", described.arguments)
                      .add("options", described.options)
                      .add("examples", describe(command.examples)));
  for (const Command &verb : command.verbs)
    describe(*app, verb, words, found);
}

} // namespace

JSONObject description(const CLI::App &app, const CommandTable &commands) {
  std::vector<JSONObject> found;
  for (const Command &command : commands)
    describe(app, command, {}, found);
  return JSONObject()
      .add("name", app.get_name())
      .add("version", std::string(kAgentBundleVersion))
      .add("summary", app.get_description())
      .add("footer", app.get_footer())
      .add("options", describe(app).options)
      .add("commands", found);
}

} // namespace kw
