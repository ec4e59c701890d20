// Scales numbers to their units, and reads numbers with units.
#include "CommandLine/Quantities.h"

#include "Tools/RVFileSizer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>

namespace kw {
namespace {

constexpr std::string_view prefixes = "kmgtpe";

// Such as "1.2 MiB": three figures, and no point after whole bytes.
std::string scaled(std::uint64_t bytes, double step, const std::array<const char *, 7> &names) {
  auto value = static_cast<double>(bytes);
  std::size_t index = 0;
  // A number that would be rounded to a whole step has the next unit.
  while (index + 1 < names.size() && value >= step - 0.5) {
    value /= step;
    ++index;
  }
  bool hasPoint = index > 0 && value < 9.95;
  return fmt::format("{:.{}f} {}", value, hasPoint ? 1 : 0, names[index]);
}

std::string lowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return result;
}

// Takes the number at the front of the text, written with digits and a point.
std::optional<double> takeNumber(std::string_view &text) {
  std::size_t length = std::min(text.find_first_not_of("0123456789."), text.size());
  std::string digits(text.substr(0, length));
  char *end = nullptr;
  double value = std::strtod(digits.c_str(), &end);
  if (digits.empty() || *end != 0 || !std::isfinite(value))
    return std::nullopt;
  text.remove_prefix(length);
  return value;
}

// Empty for a text other than a unit of bytes.
std::optional<double> bytesOfUnit(std::string_view unit) {
  if (unit.empty() || unit == "b")
    return 1;
  std::size_t power = prefixes.find(unit.front());
  if (power == prefixes.npos)
    return std::nullopt;
  std::string_view rest = unit.substr(1);
  bool isBinary = rest == "i" || rest == "ib";
  if (!isBinary && !rest.empty() && rest != "b")
    return std::nullopt;
  return std::pow(isBinary ? 1024.0 : 1000.0, static_cast<double>(power + 1));
}

std::optional<double> daysOfUnit(std::string_view unit) {
  if (unit == "h")
    return 1.0 / 24;
  if (unit.empty() || unit == "d")
    return 1;
  if (unit == "w")
    return 7;
  if (unit == "m")
    return 30;
  return unit == "y" ? std::optional<double>(365) : std::nullopt;
}

} // namespace

std::string sizeInWords(std::uint64_t bytes, Units units) {
  switch (units) {
  case Units::Plain:
    return std::to_string(bytes);
  case Units::SI:
    return scaled(bytes, 1000, {"B", "kB", "MB", "GB", "TB", "PB", "EB"});
  case Units::IEC:
    return scaled(bytes, 1024, {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"});
  case Units::Words:
  case Units::Base2:
    break;
  }
  constexpr std::string_view noBreakSpace = "\u00a0";
  std::string text =
      RVFileSizer::shared().displayItemSizeFromSize(bytes, units == Units::Base2, true);
  std::size_t at = text.find(noBreakSpace);
  if (at == text.npos)
    return text;
  return fmt::format("{} {}", text.substr(0, at), text.substr(at + noBreakSpace.size()));
}

std::string itemsInWords(std::uint64_t items) {
  return fmt::format("{} {}", items, items == 1 ? "item" : "items");
}

std::optional<std::uint64_t> bytesFromWords(std::string_view text) {
  auto number = takeNumber(text);
  auto unit = number ? bytesOfUnit(lowered(text)) : std::nullopt;
  if (!unit || *number * *unit >= 0x1p64)
    return std::nullopt;
  return static_cast<std::uint64_t>(*number * *unit);
}

std::optional<std::int64_t> ageFromWords(std::string_view text) {
  constexpr double secondsOfDay = 86400;
  constexpr double longest = 1e12;
  auto number = takeNumber(text);
  auto days = number ? daysOfUnit(lowered(text)) : std::nullopt;
  if (!days || *number * *days * secondsOfDay > longest)
    return std::nullopt;
  return static_cast<std::int64_t>(*number * *days * secondsOfDay);
}

Check storesBytes(std::uint64_t &target) {
  return [&target](const std::string &text) -> std::string {
    auto bytes = bytesFromWords(text);
    if (!bytes)
      return fmt::format("\"{}\" is not a size such as 20000, 1.5M or 2GiB", displayable(text));
    target = *bytes;
    return "";
  };
}

Check storesMomentBefore(std::optional<std::int64_t> &target) {
  return [&target](const std::string &text) -> std::string {
    auto age = ageFromWords(text);
    if (!age)
      return fmt::format("\"{}\" is not an age such as 12h, 90d, 6w, 3m or 1y", displayable(text));
    using std::chrono::system_clock;
    target = system_clock::to_time_t(system_clock::now()) - *age;
    return "";
  };
}

std::string durationInWords(std::chrono::steady_clock::duration time) {
  double seconds = std::chrono::duration<double>(time).count();
  if (seconds < 99.95)
    return fmt::format("{:.1f} s", seconds);
  auto whole = static_cast<std::uint64_t>(std::llround(seconds));
  return fmt::format("{} min {} s", whole / 60, whole % 60);
}

std::string percentInWords(std::uint64_t part, std::uint64_t whole) {
  double share = whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
  return fmt::format("{:3.0f}%", 100 * std::min(share, 1.0));
}

std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t width, bool withBlocks) {
  double share = whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
  auto full =
      static_cast<std::size_t>(std::lround(std::min(share, 1.0) * static_cast<double>(width)));
  std::string text;
  for (std::size_t place = 0; place < width; ++place)
    text += place >= full ? " " : (withBlocks ? "\u2588" : "#");
  return text;
}

} // namespace kw
