// Describes the declared arguments.
#include "CommandLine/Description.h"

#include "CommandLine/Help.h"
#include "Protocol/Identity.h"

namespace kw {
namespace {

JSONObject describe(const Argument &argument, bool isOption) {
  JSONObject object;
  if (isOption)
    object.add("names", argument.names);
  else
    object.add("name", argument.names.front());
  return object.add("value", argument.value)
      .add("help", argument.help)
      .add("required", argument.required)
      .add("repeatable", argument.repeatable);
}

std::vector<JSONObject> describe(const std::deque<Argument> &arguments, bool areOptions) {
  std::vector<JSONObject> objects;
  for (const Argument &argument : arguments)
    if (!argument.hidden)
      objects.push_back(describe(argument, areOptions));
  return objects;
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

// Nouns come before their verbs.
void describe(const DeclaredCommand &declared, std::vector<std::string> words,
              std::vector<JSONObject> &found) {
  const Command &command = *declared.command;
  words.emplace_back(command.name);
  found.push_back(JSONObject()
                      .add("words", words)
                      .add("summary", command.summary)
                      .add("note", command.note)
                      .add("group", declared.group)
                      .add("arguments", describe(declared.arguments.allOperands(), false))
                      .add("options", describe(declared.arguments.allOptions(), true))
                      .add("examples", describe(command.examples)));
  for (const DeclaredCommand &verb : declared.below)
    describe(verb, words, found);
}

} // namespace

JSONObject description(const Program &program) {
  std::vector<JSONObject> found;
  for (const DeclaredCommand &command : program.top().below)
    describe(command, {}, found);
  return JSONObject()
      .add("name", program.top().command->name)
      .add("version", std::string(kAgentBundleVersion))
      .add("summary", program.top().command->summary)
      .add("footer", generalNote())
      .add("options", describe(program.top().arguments.allOptions(), true))
      .add("commands", found);
}

} // namespace kw
