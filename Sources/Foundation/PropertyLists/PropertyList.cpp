// The property-list value: counted containers that are copied when changed,
// compared and taken apart without recursion.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Foundation/Base/Format.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/PropertyLists/Internal/PropertyListReading.h"
#include "Foundation/PropertyLists/Internal/PropertyListWalk.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include <fmt/format.h>

namespace NS {

struct PropertyList::Node {
  explicit Node(Array array) : content(std::move(array)) {}
  explicit Node(Dictionary entries) : content(std::move(entries)) {}
  explicit Node(const std::variant<Array, Dictionary> &other) : content(other) {}

  std::variant<Array, Dictionary> content;
  std::atomic<std::size_t> holders{1};
  Node *nextDying = nullptr; // only once the node has no owner
};

PropertyList::Reference::Reference(const Reference &other) : node_(other.node_) {
  if (node_)
    node_->holders.fetch_add(1, std::memory_order_relaxed);
}

// Dying nodes wait in a list of their own links, so that the release needs
// neither recursion nor memory.
void PropertyList::Reference::release(Node *node) {
  Node *dying = nullptr;
  auto letGo = [&](Node *held) {
    if (held && held->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      held->nextDying = dying;
      dying = held;
    }
  };
  auto detach = [&](PropertyList &child) {
    if (auto *reference = std::get_if<Reference>(&child.value_))
      letGo(std::exchange(reference->node_, nullptr));
  };
  letGo(node);
  while (dying) {
    Node *current = std::exchange(dying, dying->nextDying);
    if (auto *array = std::get_if<Array>(&current->content))
      for (PropertyList &child : *array)
        detach(child);
    else
      for (Entry &entry : std::get<Dictionary>(current->content))
        detach(entry.value);
    delete current;
  }
}

namespace {

// The platform sorts keys by their UTF-16 units. Bytes of UTF-8 sort as code
// points, which is the same within the first plane. Beyond it, surrogates
// precede U+E000, whose first bytes are 0xee and 0xef.
bool precedes(std::string_view left, std::string_view right) {
  auto [one, other] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
  if (one == left.end() || other == right.end())
    return one == left.end() && other != right.end();
  auto rank = [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte < 0xee ? byte : byte < 0xf0 ? byte + 0x10 : byte - 2;
  };
  return rank(*one) < rank(*other);
}

bool keyPrecedes(const PropertyList::Entry &entry, std::string_view key) {
  return precedes(entry.key, key);
}

bool inOrder(const PropertyList::Dictionary &entries) {
  for (std::size_t index = 1; index < entries.size(); ++index)
    if (!precedes(entries[index - 1].key, entries[index].key))
      return false;
  return true;
}

void sortKeepingTheLast(PropertyList::Dictionary &entries) {
  if (inOrder(entries))
    return;
  std::stable_sort(entries.begin(), entries.end(), [](const auto &left, const auto &right) {
    return precedes(left.key, right.key);
  });
  std::size_t kept = 0;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    bool replaces = kept > 0 && entries[kept - 1].key == entries[index].key;
    std::size_t place = replaces ? kept - 1 : kept++;
    if (place != index)
      entries[place] = std::move(entries[index]);
  }
  entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(kept), entries.end());
}

} // namespace

PropertyList::PropertyList(Array array) : value_(Reference(new Node(std::move(array)))) {}

PropertyList::PropertyList(Dictionary entries) : value_(false) {
  sortKeepingTheLast(entries);
  value_ = Reference(new Node(std::move(entries)));
}

PropertyList::Node *PropertyList::node() const {
  const auto *reference = std::get_if<Reference>(&value_);
  return reference ? reference->get() : nullptr;
}

// The node of a container for changing: a new one when others share it.
PropertyList::Node &PropertyList::exclusiveNode() {
  Node *shared = node();
  if (shared->holders.load(std::memory_order_acquire) != 1)
    value_ = Reference(new Node(shared->content));
  return *node();
}

PropertyList::Kind PropertyList::kind() const {
  struct Namer {
    Kind operator()(bool) const { return Kind::Boolean; }
    Kind operator()(std::int64_t) const { return Kind::Integer; }
    Kind operator()(std::uint64_t) const { return Kind::Integer; }
    Kind operator()(double) const { return Kind::Real; }
    Kind operator()(Date) const { return Kind::Date; }
    Kind operator()(const std::string &) const { return Kind::String; }
    Kind operator()(const Data &) const { return Kind::Data; }
    Kind operator()(const Reference &held) const {
      return std::holds_alternative<Array>(held.get()->content) ? Kind::Array : Kind::Dictionary;
    }
  };
  return std::visit(Namer{}, value_);
}

const std::string *PropertyList::data() const {
  const auto *held = std::get_if<Data>(&value_);
  return held ? &held->bytes : nullptr;
}

const PropertyList::Array *PropertyList::array() const {
  return node() ? std::get_if<Array>(&node()->content) : nullptr;
}

const PropertyList::Dictionary *PropertyList::dictionary() const {
  return node() ? std::get_if<Dictionary>(&node()->content) : nullptr;
}

std::optional<bool> PropertyList::boolean() const {
  const bool *held = std::get_if<bool>(&value_);
  return held ? std::optional(*held) : std::nullopt;
}

std::optional<double> PropertyList::real() const {
  const double *held = std::get_if<double>(&value_);
  return held ? std::optional(*held) : std::nullopt;
}

std::optional<PropertyList::Date> PropertyList::date() const {
  const Date *held = std::get_if<Date>(&value_);
  return held ? std::optional(*held) : std::nullopt;
}

std::optional<std::int64_t> PropertyList::integer() const {
  const auto *held = std::get_if<std::int64_t>(&value_);
  return held ? std::optional(*held) : std::nullopt;
}

std::optional<std::uint64_t> PropertyList::unsignedInteger() const {
  if (const auto *large = std::get_if<std::uint64_t>(&value_))
    return *large;
  const auto *held = std::get_if<std::int64_t>(&value_);
  return held && *held >= 0 ? std::optional(static_cast<std::uint64_t>(*held)) : std::nullopt;
}

bool PropertyList::boolValue() const {
  struct Asker {
    bool operator()(bool flag) const { return flag; }
    bool operator()(std::int64_t number) const { return number != 0; }
    bool operator()(std::uint64_t number) const { return number != 0; }
    bool operator()(double number) const { return number != 0; }
    bool operator()(const std::string &text) const {
      std::size_t start = text.find_first_not_of(" \t\n\r");
      if (start != std::string::npos && (text[start] == '+' || text[start] == '-'))
        ++start;
      start = text.find_first_not_of('0', start);
      return start != std::string::npos &&
             std::string_view("YyTt123456789").find(text[start]) != std::string_view::npos;
    }
    bool operator()(const Date &) const { return false; }
    bool operator()(const Data &) const { return false; }
    bool operator()(const Reference &) const { return false; }
  };
  return std::visit(Asker{}, value_);
}

const PropertyList *PropertyList::objectForKey(std::string_view key) const {
  const Dictionary *entries = dictionary();
  if (!entries)
    return nullptr;
  auto found = std::lower_bound(entries->begin(), entries->end(), key, keyPrecedes);
  return found != entries->end() && found->key == key ? &found->value : nullptr;
}

void PropertyList::setObjectForKey(PropertyList object, std::string_view key) {
  if (!dictionary())
    return;
  auto &entries = std::get<Dictionary>(exclusiveNode().content);
  auto place = std::lower_bound(entries.begin(), entries.end(), key, keyPrecedes);
  if (place != entries.end() && place->key == key)
    place->value = std::move(object);
  else
    entries.insert(place, Entry{std::string(key), std::move(object)});
}

void PropertyList::removeObjectForKey(std::string_view key) {
  if (!objectForKey(key))
    return;
  auto &entries = std::get<Dictionary>(exclusiveNode().content);
  entries.erase(std::lower_bound(entries.begin(), entries.end(), key, keyPrecedes));
}

void PropertyList::addObject(PropertyList object) {
  if (array())
    std::get<Array>(exclusiveNode().content).push_back(std::move(object));
}

namespace {

using Pairs = std::vector<std::pair<const PropertyList *, const PropertyList *>>;

bool leavesAreEqual(const PropertyList &left, const PropertyList &right) {
  if (auto number = left.real())
    return *number == *right.real() || (std::isnan(*number) && std::isnan(*right.real()));
  if (const std::string *text = left.string())
    return *text == *right.string();
  if (const std::string *bytes = left.data())
    return *bytes == *right.data();
  return left.integer() == right.integer() && left.unsignedInteger() == right.unsignedInteger() &&
         left.boolean() == right.boolean() && left.date() == right.date();
}

// Adds the pairs of children to be compared; false when they cannot be equal.
bool pushChildren(const PropertyList &left, const PropertyList &right, Pairs &pairs) {
  if (const auto *array = left.array()) {
    const auto &other = *right.array();
    if (array == &other)
      return true;
    if (array->size() != other.size())
      return false;
    for (std::size_t index = 0; index < other.size(); ++index)
      pairs.emplace_back(&(*array)[index], &other[index]);
    return true;
  }
  const auto &entries = *left.dictionary(), &other = *right.dictionary();
  if (&entries == &other)
    return true;
  if (entries.size() != other.size())
    return false;
  for (std::size_t index = 0; index < other.size(); ++index) {
    if (entries[index].key != other[index].key)
      return false;
    pairs.emplace_back(&entries[index].value, &other[index].value);
  }
  return true;
}

} // namespace

bool operator==(const PropertyList &left, const PropertyList &right) {
  Pairs pairs{{&left, &right}};
  while (!pairs.empty()) {
    auto [one, other] = pairs.back();
    pairs.pop_back();
    if (one->kind() != other->kind())
      return false;
    bool isContainer = one->array() || one->dictionary();
    if (!(isContainer ? pushChildren(*one, *other, pairs) : leavesAreEqual(*one, *other)))
      return false;
  }
  return true;
}

namespace {

// bytes; longer descriptions are of no use in a log
constexpr std::size_t descriptionLimit = 64 * 1024;

// The platform's older notation. Text beyond the limit is left out.
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
    // The array of one string shows how the platform quotes it.
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

std::optional<PropertyList> propertyListWithData(std::string_view data, ErrorSlot error) {
  std::optional<PropertyList> list;
  if (data.size() <= PropertyListBounds::dataSize)
    list = data.starts_with("bplist") ? readBinaryPropertyList(data) : readXMLPropertyList(data);
  if (!list)
    storeError(error, Error(CocoaErrorDomain, PropertyListReadCorruptError,
                            userInfoWith(LocalizedDescriptionKey,
                                         "The data is not a property list that can be read.")));
  return list;
}

std::optional<PropertyList> dictionaryWithContentsOfFile(const std::string &path) {
  auto data = FileContents::shared().dataWithContentsOfFile(path, nullptr);
  auto list = data ? propertyListWithData(*data, nullptr) : std::nullopt;
  return list && list->dictionary() ? list : std::nullopt;
}

} // namespace NS
