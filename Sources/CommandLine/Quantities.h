// Sizes and ages as people write and read them.
#pragma once

#include "CommandLine/Arguments.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kw {

// How a size is put into words.
enum class Units {
  Words, // 1.2 MB, in steps of 1000
  Base2, // 1.2 MB, in steps of 1024
  SI,    // 1.2 MB and 1.2 kB, in steps of 1000
  IEC,   // 1.2 MiB, in steps of 1024
  Plain, // 1200000
};

// Writes a size as text, with a plain space before the unit.
std::string sizeInWords(std::uint64_t bytes, Units units = Units::Words);

// "1 item", "2 items"
std::string itemsInWords(std::uint64_t items);

// "20000", "1.5M", "1.5MB": in steps of 1000; "1.5Mi", "1.5MiB": of 1024. Case
// does not count. Nothing for any other text.
std::optional<std::uint64_t> bytesFromWords(std::string_view text);

// Seconds, of "90" (days), "12h", "90d", "6w", "3m" (30 days each), "1y" (365
// days). Nothing for any other text.
std::optional<std::int64_t> ageFromWords(std::string_view text);

// For arguments: stores the number of bytes, or the moment that was so long ago,
// in seconds since 1970. The target must live as long as the arguments are read.
Check storesBytes(std::uint64_t &target);
Check storesMomentBefore(std::optional<std::int64_t> &target);

// Such as "0.2 s" or "3 min 5 s".
std::string durationInWords(std::chrono::steady_clock::duration time);

// A share of the whole in percent, as a number of three places.
std::string percentInWords(std::uint64_t part, std::uint64_t whole);

// Draws a share as a bar that takes so many places: with blocks if the terminal
// can show them, else with "#".
std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t width, bool withBlocks);

} // namespace kw
