// The bounds of both readers of property lists, and their account of the cost
// of a list.
#pragma once

#include "Foundation/PropertyLists/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace NS {

struct PropertyListBounds {
  static constexpr std::size_t dataSize = 8u << 20;      // bytes
  static constexpr std::size_t depth = 512;              // containers around a value
  static constexpr std::size_t contents = 24u << 20;     // bytes, as charged below
  static constexpr std::size_t parserMemory = 24u << 20; // bytes, of the XML parser
  // The charge for one value besides its text, an upper estimate of its space
  // in a container, and the charge for a container besides its elements.
  static constexpr std::size_t valueCost = 96;
  static constexpr std::size_t containerCost = 128;
};

// Counts down the contents that a list may still have.
class PropertyListBudget {
public:
  bool charge(std::uint64_t bytes) {
    if (bytes > left_)
      return false;
    left_ -= bytes;
    return true;
  }
  bool chargeValues(std::uint64_t count) {
    return count <= left_ / PropertyListBounds::valueCost &&
           charge(count * PropertyListBounds::valueCost);
  }
  std::uint64_t left() const { return left_; }

private:
  std::uint64_t left_ = PropertyListBounds::contents;
};

// Seconds since 2001 of the first and the last possible date: years 1 to 9999.
inline constexpr std::int64_t earliestDate = -63113904000;
inline constexpr std::int64_t latestDate = 252423993599;

std::optional<PropertyList> readBinaryPropertyList(std::string_view data);
std::optional<PropertyList> readXMLPropertyList(std::string_view data);

} // namespace NS
