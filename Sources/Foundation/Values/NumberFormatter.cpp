// Number formatting by ICU.
#include "Foundation/Values/NumberFormatter.h"

#include "Foundation/Base/Internal/EnvironmentLock.h"
#include "Foundation/Text/Internal/ICUStatus.h"
#include "Foundation/Text/Unicode.h"

#include <array>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include <unicode/uloc.h>
#include <unicode/unum.h>

namespace NS {
namespace {

// ICU's own default would be the locale of messages.
std::string localeOfNumbers() {
  std::string name;
  {
    std::shared_lock lock(environmentLock());
    for (const char *variable : {"LC_ALL", "LC_NUMERIC", "LANG"})
      if (const char *value = std::getenv(variable); value && *value) {
        name = value;
        break;
      }
  }
  // "C.UTF-8" differs from "C" only in its character set.
  std::string_view language = std::string_view(name).substr(0, name.find('.'));
  if (language.empty() || language == "C" || language == "POSIX")
    return "en_US_POSIX";
  std::array<char, ULOC_FULLNAME_CAPACITY> canonical;
  UErrorCode status = U_ZERO_ERROR;
  uloc_canonicalize(name.c_str(), canonical.data(), static_cast<std::int32_t>(canonical.size()),
                    &status);
  // A name that fills the buffer gets no NUL, so it loses its last letter.
  canonical.back() = '\0';
  return hasFailed(status) ? "" : canonical.data();
}

class LocalizedFormatter final : public NumberFormatter {
public:
  LocalizedFormatter() {
    UErrorCode status = U_ZERO_ERROR;
    format_.reset(unum_open(UNUM_DECIMAL, nullptr, 0, localeOfNumbers().c_str(), nullptr, &status));
    if (hasFailed(status))
      format_.reset();
    set(UNUM_GROUPING_USED, 0);
    set(UNUM_ROUNDING_MODE, UNUM_ROUND_HALFEVEN);
    set(UNUM_MIN_INTEGER_DIGITS, 1);
    set(UNUM_MAX_FRACTION_DIGITS, 0);
  }

  void setRoundingMode(NumberFormatterRoundingMode mode) override {
    set(UNUM_ROUNDING_MODE,
        mode == NumberFormatterRoundingMode::HalfEven ? UNUM_ROUND_HALFEVEN : UNUM_ROUND_HALFUP);
  }
  void setMinimumIntegerDigits(int digits) override { set(UNUM_MIN_INTEGER_DIGITS, digits); }
  void setMaximumFractionDigits(int digits) override { set(UNUM_MAX_FRACTION_DIGITS, digits); }

  std::optional<std::string> stringFromNumber(const Number &number) const override {
    if (!format_)
      return std::nullopt;
    std::u16string text(64, u'\0');
    for (;;) {
      UErrorCode status = U_ZERO_ERROR;
      std::int32_t length =
          unum_formatDouble(format_.get(), number.doubleValue(), text.data(),
                            static_cast<std::int32_t>(text.size()), nullptr, &status);
      bool isShort = status == U_BUFFER_OVERFLOW_ERROR;
      if (hasFailed(status) && !isShort)
        return std::nullopt;
      text.resize(static_cast<std::size_t>(length));
      if (!isShort)
        return bytesFromUTF16(text);
    }
  }

private:
  void set(UNumberFormatAttribute attribute, std::int32_t value) {
    if (format_)
      unum_setAttribute(format_.get(), attribute, value);
  }

  struct CloseFormat {
    void operator()(UNumberFormat *format) const { unum_close(format); }
  };
  std::unique_ptr<UNumberFormat, CloseFormat> format_; // null if ICU has none
};

} // namespace

std::unique_ptr<NumberFormatter> NumberFormatter::create() {
  return std::make_unique<LocalizedFormatter>();
}

} // namespace NS
