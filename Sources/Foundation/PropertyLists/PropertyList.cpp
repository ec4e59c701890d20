// The property-list value: counted containers that are copied when changed and
// taken apart without recursion.
#include "Foundation/PropertyLists/PropertyList.h"

#include <algorithm>
#include <atomic>
#include <utility>

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

// Links the nodes without an owner into a list through their own fields and
// destroys one after the other, so that this neither recurses nor allocates.
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

} // namespace NS
