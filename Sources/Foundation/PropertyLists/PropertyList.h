// Property lists: the value, and its reading and writing as data.
//
// A value type: copies are cheap, share their contents until one of them
// changes, and may cross threads. No function recurses, at any depth of the
// value.
#pragma once

#include "Foundation/Base/Error.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace NS {

class PropertyList {
public:
  enum class Kind { Boolean, Integer, Real, Date, String, Data, Array, Dictionary };

  struct Entry;
  using Array = std::vector<PropertyList>;
  // Ascending by the UTF-16 units of the key, each key once.
  using Dictionary = std::vector<Entry>;
  struct Data {
    std::string bytes;
    friend bool operator==(const Data &, const Data &) = default;
  };
  // Whole seconds: reading drops the fraction that only a binary list can hold
  // (rounding down).
  struct Date {
    std::int64_t secondsSince2001 = 0; // UTC; negative before
    friend bool operator==(const Date &, const Date &) = default;
  };

  PropertyList(std::string text) : value_(std::move(text)) {}
  PropertyList(std::string_view text) : value_(std::string(text)) {}
  PropertyList(const char *text) : value_(std::string(text)) {}
  PropertyList(Data data) : value_(std::move(data)) {}
  PropertyList(Date date) : value_(date) {}
  PropertyList(Array array);
  // Sorts the entries; of two with the same key the later one stays.
  PropertyList(Dictionary entries);
  template <std::same_as<bool> Flag> PropertyList(Flag flag) : value_(flag) {}
  template <std::floating_point Real>
  PropertyList(Real number) : value_(static_cast<double>(number)) {}
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) PropertyList(Integer number)
      : value_(integerValue(number)) {}

  PropertyList(const PropertyList &) = default;
  PropertyList(PropertyList &&) noexcept = default;
  // Copies first: the other value may be a part of this one.
  PropertyList &operator=(const PropertyList &other) { return *this = PropertyList(other); }
  PropertyList &operator=(PropertyList &&) noexcept = default;
  ~PropertyList() = default;

  Kind kind() const;

  // Each is null or empty when the value is of another kind. The pointers hold
  // until the value is changed or destroyed.
  const std::string *string() const { return std::get_if<std::string>(&value_); }
  const std::string *data() const;
  const Array *array() const;
  const Dictionary *dictionary() const;
  std::optional<bool> boolean() const;
  std::optional<double> real() const;
  std::optional<Date> date() const;
  // Empty also when the integer does not fit.
  std::optional<std::int64_t> integer() const;
  std::optional<std::uint64_t> unsignedInteger() const;

  // The same as the platform's boolValue: numbers other than zero, and strings
  // that begin with Y, y, T, t or a number other than zero, are true.
  bool boolValue() const;

  // Null when this value is not a dictionary or has no such key.
  const PropertyList *objectForKey(std::string_view key) const;

  // The changes below do nothing to a value of another kind.
  void setObjectForKey(PropertyList object, std::string_view key);
  void removeObjectForKey(std::string_view key);

  // Same kind and same contents; not-a-number equals itself.
  friend bool operator==(const PropertyList &left, const PropertyList &right);

private:
  struct Node;

  // Counts the owners of a node. The last one destroys the whole tree beneath
  // without recursion.
  class Reference {
  public:
    explicit Reference(Node *node) : node_(node) {}
    Reference(const Reference &other);
    Reference(Reference &&other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    Reference &operator=(Reference other) noexcept {
      std::swap(node_, other.node_);
      return *this;
    }
    ~Reference() {
      if (node_)
        release(node_);
    }
    Node *get() const { return node_; }

  private:
    static void release(Node *node);
    Node *node_;
  };

  // Unsigned only for values beyond the range of a signed integer.
  using Value =
      std::variant<bool, std::int64_t, std::uint64_t, double, Date, std::string, Data, Reference>;

  template <std::integral Integer> static Value integerValue(Integer number) {
    if constexpr (std::unsigned_integral<Integer>)
      if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return static_cast<std::uint64_t>(number);
    return static_cast<std::int64_t>(number);
  }

  Node *node() const;
  Node &exclusiveNode();

  Value value_;
};

struct PropertyList::Entry {
  std::string key;
  PropertyList value;
};

// Formats as the platform prints it: a string unchanged, an array in
// parentheses, a dictionary in braces.
std::string describe(const PropertyList &list);

// Reads a list in XML or binary form. On a list that is not well formed it
// returns an empty optional and sets PropertyListReadCorruptError. It treats
// four more kinds of lists so: those beyond the bounds (8 MiB of data, a depth
// of 512, 24 MiB of contents with shared parts counted each time, 24 MiB of memory
// for the parser of XML, which needs more than 8 only for long or many attributes
// and names); those that declare entities or an internal subset; those that contain
// themselves; and those that this type cannot hold without loss: an archiver's
// UIDs, sets and nulls, halves of surrogate pairs, integers beyond 64 bits (which
// the platform also refuses in the XML form), dates outside the years 1 to 9999. An
// edit writes a list back whole, so no part of it may get lost in silence. Like the
// platform, it takes a real beyond the range of a double for infinity or zero,
// and of data in Base64 the whole groups of digits, with any other characters
// between the digits. Of a repeated key the last value counts. Takes at most 64
// MiB beyond the data.
std::optional<PropertyList> propertyListWithData(std::string_view data, ErrorSlot error);

// Writes a list in the XML form: tab-indented, keys sorted by their UTF-16
// units, data in Base64. Reading it gives an equal value. A string that XML
// cannot hold (control characters, invalid UTF-8) fails with
// PropertyListWriteInvalidError.
std::optional<std::string> dataWithPropertyList(const PropertyList &list, ErrorSlot error);

// The dictionary in a file; empty when the file cannot be read, is unparseable
// or holds another kind of value. Throws ResourceShortage when this process lacks
// the descriptors or the memory to read it now.
std::optional<PropertyList> dictionaryWithContentsOfFile(const std::string &path);

} // namespace NS
