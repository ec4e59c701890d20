// Number formatting by ICU, whose formatters never change once made: setting
// one up means making another.
#include "Foundation/NumberFormatter.h"

#include "Foundation/POSIX/EnvironmentLock.h"

#include <cstdlib>
#include <mutex>
#include <string_view>

#include <unicode/numberformatter.h>

namespace NS {
namespace {

// The library's own default goes by the language of messages.
icu::Locale localeOfNumbers() {
  std::string name;
  {
    std::shared_lock lock(environmentLock());
    for (const char *variable : {"LC_ALL", "LC_NUMERIC", "LANG"})
      if (const char *value = std::getenv(variable); value && *value) {
        name = value;
        break;
      }
  }
  // "C.UTF-8" differs from "C" in its characters alone.
  const std::string_view language = std::string_view(name).substr(0, name.find('.'));
  if (language.empty() || language == "C" || language == "POSIX")
    name = "en_US_POSIX";
  return icu::Locale::createCanonical(name.c_str());
}

class LocalizedFormatter final : public NumberFormatter {
public:
  LocalizedFormatter() { rebuild(); }

  void setRoundingMode(NumberFormatterRoundingMode mode) override {
    roundingMode_ =
        mode == NumberFormatterRoundingMode::HalfEven ? UNUM_ROUND_HALFEVEN : UNUM_ROUND_HALFUP;
    rebuild();
  }
  void setMinimumIntegerDigits(int digits) override {
    minimumIntegerDigits_ = digits;
    rebuild();
  }
  void setMaximumFractionDigits(int digits) override {
    maximumFractionDigits_ = digits;
    rebuild();
  }

  std::optional<std::string> stringFromNumber(const Number &number) const override {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text =
        formatter_.formatDouble(number.doubleValue(), status).toString(status);
    if (U_FAILURE(status))
      return std::nullopt;
    std::string result;
    return text.toUTF8String(result);
  }

private:
  void rebuild() {
    formatter_ = icu::number::NumberFormatter::withLocale(locale_)
                     .grouping(UNUM_GROUPING_OFF)
                     .roundingMode(roundingMode_)
                     .integerWidth(icu::number::IntegerWidth::zeroFillTo(minimumIntegerDigits_))
                     .precision(icu::number::Precision::maxFraction(maximumFractionDigits_));
  }

  const icu::Locale locale_ = localeOfNumbers();
  UNumberFormatRoundingMode roundingMode_ = UNUM_ROUND_HALFEVEN;
  int minimumIntegerDigits_ = 1;
  int maximumFractionDigits_ = 0;
  icu::number::LocalizedNumberFormatter formatter_;
};

} // namespace

std::unique_ptr<NumberFormatter> NumberFormatter::create() {
  return std::make_unique<LocalizedFormatter>();
}

} // namespace NS
