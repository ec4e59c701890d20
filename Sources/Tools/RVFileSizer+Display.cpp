// Formats sizes as text.
#include "Tools/RVFileSizer.h"

#include "Foundation/Base/Format.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Threads/Dispatch.h"

#include <string_view>

namespace kw {
namespace {

constexpr std::string_view unitLetters = "KMGTPE";
constexpr const char *zeroSizeKey = "Zero\u00a0KB";
constexpr const char *zeroKey = "Zero";

std::string localized(const std::string &key) {
  return NS::Bundle::mainBundle().localizedStringForKey(key, "", std::nullopt);
}

std::string unitText(std::size_t unitIndex) {
  return NS::stringWithFormat("%cB", unitLetters.substr(unitIndex, 1));
}

} // namespace

double scaledSize(std::uint64_t size, const SizeThresholds &thresholds, std::size_t *unitIndex) {
  std::size_t index = 0;
  if (thresholds == decimalSizeThresholds || thresholds == binarySizeThresholds)
    while (index + 1 < thresholds.size() && thresholds[index + 1] <= size)
      ++index;
  if (unitIndex)
    *unitIndex = index;
  return static_cast<double>(size) / static_cast<double>(thresholds[index]);
}

std::unique_ptr<NS::NumberFormatter> RVFileSizer::defaultSizeFormatter() const {
  std::unique_ptr<NS::NumberFormatter> formatter = NS::NumberFormatter::create();
  formatter->setRoundingMode(NS::NumberFormatterRoundingMode::HalfEven);
  formatter->setMinimumIntegerDigits(1);
  formatter->setMaximumFractionDigits(2);
  return formatter;
}

const NS::NumberFormatter &RVFileSizer::cachedSizeFormatter(std::size_t fractionDigits) const {
  using Formatters = std::array<std::unique_ptr<NS::NumberFormatter>, 10>;
  static NS::DispatchOnceToken once;
  // Never destroyed: threads may format until the very end of the process.
  static Formatters *formatters = nullptr;
  NS::dispatchOnce(once, [] {
    formatters = new Formatters;
    for (std::size_t digits = 0; digits < formatters->size(); ++digits) {
      (*formatters)[digits] = shared().defaultSizeFormatter();
      (*formatters)[digits]->setMaximumFractionDigits(static_cast<int>(digits));
    }
  });
  return *formatters->at(fractionDigits);
}

std::string RVFileSizer::displayItemSizeFromSize(std::uint64_t size, bool base2,
                                                 bool localizedUnit) const {
  if (size == 0)
    return localized(zeroSizeKey);
  std::size_t unitIndex = 0;
  double value = scaledSize(size, base2 ? binarySizeThresholds : decimalSizeThresholds, &unitIndex);
  std::optional<std::string> number =
      cachedSizeFormatter(unitIndex).stringFromNumber(*NS::Number::numberWithDouble(value));
  if (!number)
    return localized(zeroSizeKey);
  std::string unit = unitText(unitIndex);
  if (localizedUnit)
    unit = localized(unit);
  return *number + NS::stringWithFormat("\u00a0%@", unit);
}

std::string RVFileSizer::displayItemSizeFromSize(std::uint64_t size) const {
  return displayItemSizeFromSize(size, false, true);
}

std::string RVFileSizer::nonLocalizedDisplayItemSizeFromSize(std::uint64_t size) const {
  return displayItemSizeFromSize(size, false, false);
}

std::string RVFileSizer::displayItemSizeFromSizeInBase2(std::uint64_t size) const {
  return displayItemSizeFromSize(size, true, true);
}

std::string RVFileSizer::displayItemSizeAtPath(const std::string &path) const {
  return displayItemSizeFromSize(itemSizeAtPath(path));
}

std::string RVFileSizer::displayItemSizeNumberFromSize(std::uint64_t size) const {
  if (size == 0)
    return localized(zeroSizeKey);
  std::size_t unitIndex = 0;
  double value = scaledSize(size, decimalSizeThresholds, &unitIndex);
  std::unique_ptr<NS::NumberFormatter> formatter = defaultSizeFormatter();
  formatter->setMaximumFractionDigits(static_cast<int>(unitIndex));
  std::optional<std::string> number =
      formatter->stringFromNumber(*NS::Number::numberWithDouble(value));
  return number ? *number : localized(zeroKey);
}

std::string RVFileSizer::displayItemSizeDimensionFromSize(std::uint64_t size) const {
  if (size == 0)
    return "";
  std::size_t unitIndex = 0;
  static_cast<void>(scaledSize(size, decimalSizeThresholds, &unitIndex));
  return localized(unitText(unitIndex));
}

} // namespace kw
