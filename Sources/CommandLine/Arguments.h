// The arguments of a command, declared once. The reading of the command line,
// the help, the completions and the manual use the declaration.
//
// A word is an option, the value of an option, or an operand. Values and
// operands are taken byte for byte.
#pragma once

#include "CommandLine/Displayable.h"

#include <charconv>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace kw {

// An option ("--keep PATTERN", or a flag without a value) or an operand.
struct Argument {
  std::vector<std::string> names; // with their dashes; one without for an operand
  std::string value;              // the name of the value in the help; empty for a flag
  std::string help;
  bool required = false;
  bool repeatable = false;
  bool hidden = false;
  const Argument *needs = nullptr; // makes no sense without this other one
  bool isGiven = false;
  // Stores the value. Returns a complaint, or an empty text.
  std::function<std::string(const std::string &value)> take;

  bool isFlag() const { return value.empty(); }
  bool isCalled(std::string_view name) const;
};

// Returns a complaint about a value, or an empty text.
using Check = std::function<std::string(const std::string &value)>;

// Refuses an empty text.
std::string refuseEmpty(const std::string &value);

// Refuses a text other than a whole number from the smallest on, and stores the
// number. The target must outlive the reading of the arguments.
template <typename Number> Check storesNumber(Number &target, Number smallest) {
  return [&target, smallest](const std::string &text) -> std::string {
    auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), target);
    if (failure == std::errc() && end == text.data() + text.size() && target >= smallest)
      return "";
    return std::string("\"")
        .append(displayable(text))
        .append("\" is not a whole number from ")
        .append(std::to_string(smallest))
        .append(" up");
  };
}

// The targets must outlive the reading of the arguments. References to declared
// arguments stay valid.
class Arguments {
public:
  // Names as in "-n,--dry-run".
  Argument &flag(std::string_view names, bool &target, std::string_view help);
  Argument &option(std::string_view names, std::string &target, std::string_view value,
                   std::string_view help, const Check &check = nullptr);
  // May be given several times; each value is added to the target.
  Argument &option(std::string_view names, std::vector<std::string> &target, std::string_view value,
                   std::string_view help, const Check &check = nullptr);
  // A required operand.
  Argument &operand(std::string_view name, std::string &target, std::string_view value,
                    std::string_view help, const Check &check = refuseEmpty);
  // Takes all operands that remain; declare it last.
  Argument &operand(std::string_view name, std::vector<std::string> &target, std::string_view value,
                    std::string_view help, const Check &check = refuseEmpty);
  // Takes all words after the operands declared so far, even those like options.
  // The value is their name in the usage.
  void everythingBehind(std::vector<std::string> &target, std::string_view value) {
    behind_ = &target;
    behindValue_ = value;
  }

  const std::deque<Argument> &allOptions() const { return options_; }
  const std::deque<Argument> &allOperands() const { return operands_; }
  // Empty unless everythingBehind() was called.
  const std::string &valueBehind() const { return behindValue_; }
  // Tells whether an operand was taken so far.
  bool hasOperands() const {
    return nextOperand_ > 0 || (!operands_.empty() && operands_.front().isGiven);
  }
  // Null when no option has the name.
  Argument *findOption(std::string_view name);

  // Tells whether everythingBehind() takes all words from here on.
  bool takesEverything() const { return behind_ && nextOperand_ == operands_.size(); }
  // Throws UsageError for a word too many, and for a value that its check refuses.
  void takeOperand(const std::string &word);
  // Throws UsageError when something is missing.
  void checkIsComplete() const;

private:
  Argument &add(std::deque<Argument> &list, std::string_view names, std::string_view value,
                std::string_view help);
  // With a value that goes to the target, or is added to it.
  template <typename Target>
  Argument &addTaking(std::deque<Argument> &list, std::string_view names, Target &target,
                      std::string_view value, std::string_view help, const Check &check);

  std::deque<Argument> options_;
  std::deque<Argument> operands_;
  std::size_t nextOperand_ = 0;
  std::vector<std::string> *behind_ = nullptr;
  std::string behindValue_;
};

// Takes the option that starts at the index out of the words, with its value if
// it has one, and returns the index after it. Looks into each table in turn.
// Throws UsageError.
std::size_t takeOption(const std::vector<Arguments *> &tables,
                       const std::vector<std::string> &words, std::size_t index);

// Tells whether a word is an option where options are allowed. A lone dash is no
// option.
bool looksLikeOption(std::string_view word);

} // namespace kw
