// The text of a property list for a log.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Foundation/Base/Format.h"
#include "Foundation/PropertyLists/Internal/PropertyListWalk.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace NS {
namespace {

// In bytes; longer descriptions are of no use in a log.
constexpr std::size_t descriptionLimit = 64 * 1024;

// Writes the platform's older notation, and stops after the first element that
// goes beyond the limit.
class Describer {
public:
  bool leaf(const PropertyList &value, std::size_t depth) {
    indentElement(depth);
    text_ += textOf(value, depth > 0);
    return finishElement();
  }
  bool begin(const PropertyList &value, std::size_t depth) {
    afterKey_ = false; // the platform indents a container also after its key
    indent(depth);
    text_ += value.array() ? "(\n" : "{\n";
    containers_.push_back(value.array() != nullptr);
    return text_.size() < descriptionLimit;
  }
  bool key(const std::string &name, std::size_t depth) {
    indent(depth);
    text_ += quotedIfNeeded(name) + " = ";
    afterKey_ = true;
    return true;
  }
  bool end(const PropertyList &, std::size_t depth) {
    if (containers_.back() && text_.ends_with(",\n"))
      text_.erase(text_.size() - 2, 1);
    indent(depth);
    text_ += containers_.back() ? ")" : "}";
    containers_.pop_back();
    return finishElement();
  }
  std::string text_;

private:
  static std::string quotedIfNeeded(const std::string &text) {
    // The description of an array with this one string quotes it.
    std::string array = describe(std::vector<std::string>{text});
    return array.substr(6, array.size() - 8);
  }
  static std::string textOf(const PropertyList &value, bool nested) {
    if (const std::string *text = value.string())
      return nested ? quotedIfNeeded(*text) : *text;
    if (const std::string *bytes = value.data())
      return fmt::format("{{length = {}, bytes = 0x{:02x}}}", bytes->size(),
                         fmt::join(std::vector<unsigned char>(bytes->begin(), bytes->end()), ""));
    if (auto flag = value.boolean())
      return *flag ? "1" : "0";
    if (auto number = value.real())
      return fmt::format("{}", *number);
    if (auto date = value.date())
      return fmt::format("{}s", date->secondsSince2001);
    if (auto integer = value.integer())
      return std::to_string(*integer);
    return std::to_string(*value.unsignedInteger());
  }
  void indent(std::size_t depth) { text_.append(std::min(depth, std::size_t{64}) * 4, ' '); }
  void indentElement(std::size_t depth) {
    if (!std::exchange(afterKey_, false))
      indent(depth);
  }
  bool finishElement() {
    if (!containers_.empty())
      text_ += containers_.back() ? ",\n" : ";\n";
    return text_.size() < descriptionLimit;
  }

  std::vector<bool> containers_; // whether each open one is an array
  bool afterKey_ = false;
};

} // namespace

std::string describe(const PropertyList &list) {
  Describer describer;
  if (!walk(list, describer))
    describer.text_ += "…";
  return std::move(describer.text_);
}

} // namespace NS
