// Reports the size of a tree, level by level.
#pragma once

#include "CommandLine/MeasuredTree.h"
#include "CommandLine/Quantities.h"
#include "CommandLine/Session.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace kw {

struct SizeReport {
  Units units = Units::Words;
  std::size_t most = std::numeric_limits<std::size_t>::max(); // items of each folder
  std::uint64_t least = 0;                                    // bytes of an item to report

  // In words, also where numbers are printed.
  std::string text(std::uint64_t bytes) const {
    return sizeInWords(bytes, units == Units::Plain ? Units::Words : units);
  }
  // A line for the tree and for each item that it holds; with bars for a person.
  void say(Session &session, const std::string &path, const MeasuredItem &root) const;
  // Adds the members for the tree.
  JSONObject &add(JSONObject &object, const MeasuredItem &item) const;

private:
  std::size_t told(const MeasuredItem &folder) const;
  void sayLine(Session &session, const MeasuredItem &item, const std::string &shown,
               const std::string &path, std::uint64_t whole) const;
  void sayBelow(Session &session, const MeasuredItem &folder, const std::string &path,
                std::size_t level, std::uint64_t whole) const;
};

} // namespace kw
