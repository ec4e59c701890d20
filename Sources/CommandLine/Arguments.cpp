// Declares arguments, and takes the words of the command line one by one.
#include "CommandLine/Arguments.h"

#include "CommandLine/NearWord.h"
#include "CommandLine/Session.h"

#include <algorithm>
#include <fmt/format.h>
#include <type_traits>

namespace kw {
namespace {

std::vector<std::string> splitNames(std::string_view names) {
  std::vector<std::string> result;
  while (!names.empty()) {
    std::size_t end = std::min(names.find(','), names.size());
    result.emplace_back(names.substr(0, end));
    names.remove_prefix(std::min(end + 1, names.size()));
  }
  return result;
}

void store(const std::string &value, std::string &target) {
  target = value;
}

void store(const std::string &value, std::vector<std::string> &target) {
  target.push_back(value);
}

Argument *find(const std::vector<Arguments *> &tables, std::string_view name) {
  for (Arguments *table : tables)
    if (Argument *option = table->findOption(name))
      return option;
  return nullptr;
}

[[noreturn]] void refuseUnknown(const std::vector<Arguments *> &tables, const std::string &name) {
  std::vector<std::string> known;
  for (const Arguments *table : tables)
    for (const Argument &option : table->allOptions())
      known.insert(known.end(), option.names.begin(), option.names.end());
  std::string near = name.size() > 2 ? nearWord(name, known) : "";
  throw UsageError("there is no option " + displayable(name) +
                   (near.empty() ? "" : "; did you mean " + near + "?") +
                   "\nWrite a name that starts with a dash after a lone --");
}

void take(Argument &option, const std::string &name, const std::string &value) {
  if (option.isGiven && !option.repeatable && !option.isFlag())
    throw UsageError(name + " is given twice");
  option.isGiven = true;
  std::string complaint = option.take(value);
  if (!complaint.empty())
    throw UsageError(name + ": " + complaint);
}

// The next word is the value.
std::size_t takeNext(Argument &option, const std::string &name,
                     const std::vector<std::string> &words, std::size_t index) {
  if (index + 1 == words.size())
    throw UsageError(name + " needs a value: " + option.value);
  take(option, name, words[index + 1]);
  return index + 2;
}

// "--name", "--name=value", "--name value"
std::size_t takeLong(const std::vector<Arguments *> &tables, const std::vector<std::string> &words,
                     std::size_t index) {
  const std::string &word = words[index];
  std::size_t equals = word.find('=');
  std::string name = word.substr(0, equals);
  Argument *option = find(tables, name);
  if (!option)
    refuseUnknown(tables, name);
  bool hasValue = equals != word.npos;
  if (option->isFlag() && hasValue)
    throw UsageError(name + " takes no value");
  if (option->isFlag() || hasValue) {
    take(*option, name, hasValue ? word.substr(equals + 1) : "");
    return index + 1;
  }
  return takeNext(*option, name, words, index);
}

// "-n", several flags as in "-n0", and a value as in "-d2" or "-d 2"
std::size_t takeShort(const std::vector<Arguments *> &tables, const std::vector<std::string> &words,
                      std::size_t index) {
  const std::string &word = words[index];
  for (std::size_t at = 1; at < word.size(); ++at) {
    std::string name{'-', word[at]};
    Argument *option = find(tables, name);
    if (!option)
      refuseUnknown(tables, word.size() == 2 ? name : fmt::format("{} in {}", name, word));
    if (option->isFlag()) {
      take(*option, name, "");
      continue;
    }
    if (at + 1 == word.size())
      return takeNext(*option, name, words, index);
    take(*option, name, word.substr(at + 1));
    break;
  }
  return index + 1;
}

} // namespace

std::string refuseEmpty(const std::string &value) {
  return value.empty() ? "it must not be empty" : "";
}

bool Argument::isCalled(std::string_view name) const {
  return std::find(names.begin(), names.end(), name) != names.end();
}

Argument &Arguments::add(std::deque<Argument> &list, std::string_view names, std::string_view value,
                         std::string_view help) {
  Argument &argument = list.emplace_back();
  argument.names = splitNames(names);
  argument.value = value;
  argument.help = help;
  return argument;
}

Argument &Arguments::flag(std::string_view names, bool &target, std::string_view help) {
  Argument &argument = add(options_, names, "", help);
  argument.take = [&target](const std::string &) {
    target = true;
    return "";
  };
  return argument;
}

template <typename Target>
Argument &Arguments::addTaking(std::deque<Argument> &list, std::string_view names, Target &target,
                               std::string_view value, std::string_view help, const Check &check) {
  Argument &argument = add(list, names, value, help);
  argument.repeatable = std::is_same_v<Target, std::vector<std::string>>;
  argument.take = [&target, check](const std::string &given) {
    store(given, target);
    return check ? check(given) : "";
  };
  return argument;
}

Argument &Arguments::option(std::string_view names, std::string &target, std::string_view value,
                            std::string_view help, const Check &check) {
  return addTaking(options_, names, target, value, help, check);
}

Argument &Arguments::option(std::string_view names, std::vector<std::string> &target,
                            std::string_view value, std::string_view help, const Check &check) {
  return addTaking(options_, names, target, value, help, check);
}

Argument &Arguments::operand(std::string_view name, std::string &target, std::string_view value,
                             std::string_view help, const Check &check) {
  Argument &argument = addTaking(operands_, name, target, value, help, check);
  argument.required = true;
  return argument;
}

Argument &Arguments::operand(std::string_view name, std::vector<std::string> &target,
                             std::string_view value, std::string_view help, const Check &check) {
  return addTaking(operands_, name, target, value, help, check);
}

Argument *Arguments::findOption(std::string_view name) {
  auto found = std::find_if(options_.begin(), options_.end(),
                            [name](const Argument &option) { return option.isCalled(name); });
  return found == options_.end() ? nullptr : &*found;
}

void Arguments::takeOperand(const std::string &word) {
  if (takesEverything()) {
    behind_->push_back(word);
    return;
  }
  if (nextOperand_ == operands_.size())
    throw UsageError("there is one word too many: \"" + displayable(word) + "\"");
  Argument &operand = operands_[nextOperand_];
  nextOperand_ += operand.repeatable ? 0 : 1;
  operand.isGiven = true;
  std::string complaint = operand.take(word);
  if (!complaint.empty())
    throw UsageError(operand.value + ": " + complaint);
}

void Arguments::checkIsComplete() const {
  for (const Argument &operand : operands_)
    if (operand.required && !operand.isGiven)
      throw UsageError(operand.value + " is required");
  for (const Argument &option : options_) {
    if (option.required && !option.isGiven)
      throw UsageError(option.names.back() + " is required");
    if (option.isGiven && option.needs && !option.needs->isGiven)
      throw UsageError(option.names.back() + " needs " + option.needs->names.back());
  }
}

std::size_t takeOption(const std::vector<Arguments *> &tables,
                       const std::vector<std::string> &words, std::size_t index) {
  return words[index].starts_with("--") ? takeLong(tables, words, index)
                                        : takeShort(tables, words, index);
}

bool looksLikeOption(std::string_view word) {
  return word.size() > 1 && word.front() == '-';
}

} // namespace kw
