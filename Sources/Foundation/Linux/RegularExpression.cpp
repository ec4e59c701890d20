// ICU's expressions, the dialect of the platform, with a bound on what one
// search may cost.
#include "Foundation/RegularExpression.h"

#include "Foundation/Unicode.h"

#include <unicode/regex.h>

namespace NS {
namespace {

constexpr std::size_t longestPattern = std::size_t{1} << 16;
constexpr std::size_t longestText = std::size_t{1} << 20;
// ICU's unit is ten thousand backtracking steps: a fraction of a second.
constexpr std::int32_t stepLimit = 250;
constexpr std::int32_t stackLimit = 8'000'000;

// Where in the text the unit of its UTF-16 form stands.
std::size_t byteOfUnit(std::string_view text, std::size_t unit) {
  std::size_t index = 0;
  for (std::size_t units = 0; index < text.size() && units < unit;) {
    DecodedCharacter character = decodeCharacter(text, index);
    units += character.wellFormed && character.value >= 0x10000 ? 2 : 1;
    index += character.length;
  }
  return index;
}

class ICUExpression final : public RegularExpression {
public:
  explicit ICUExpression(std::unique_ptr<const icu::RegexPattern> pattern)
      : pattern_(std::move(pattern)) {}

  std::optional<ByteRange> firstMatchInString(std::string_view text) const override {
    if (text.size() > longestText)
      return std::nullopt;
    std::u16string units = utf16FromBytes(text);
    icu::UnicodeString input(false, units.data(), static_cast<std::int32_t>(units.size()));
    UErrorCode status = U_ZERO_ERROR;
    // The pattern is shared, the matcher belongs to this search alone.
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->matcher(input, status));
    if (U_FAILURE(status) || !matcher)
      return std::nullopt;
    matcher->setTimeLimit(stepLimit, status);
    matcher->setStackLimit(stackLimit, status);
    if (U_FAILURE(status) || !matcher->find(status) || U_FAILURE(status))
      return std::nullopt;
    std::size_t start = byteOfUnit(text, static_cast<std::size_t>(matcher->start(status)));
    std::size_t end = byteOfUnit(text, static_cast<std::size_t>(matcher->end(status)));
    return ByteRange{start, end - start};
  }

private:
  std::unique_ptr<const icu::RegexPattern> pattern_;
};

} // namespace

std::shared_ptr<const RegularExpression>
RegularExpression::regularExpressionWithPattern(std::string_view pattern,
                                                RegularExpressionOptions options) {
  if (pattern.size() > longestPattern)
    return nullptr;
  std::u16string units = utf16FromBytes(pattern);
  icu::UnicodeString text(units.data(), static_cast<std::int32_t>(units.size()));
  std::uint32_t flags = options & RegularExpressionCaseInsensitive ? UREGEX_CASE_INSENSITIVE : 0;
  UParseError where;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<const icu::RegexPattern> compiled(
      icu::RegexPattern::compile(text, flags, where, status));
  if (U_FAILURE(status) || !compiled)
    return nullptr;
  return std::make_shared<ICUExpression>(std::move(compiled));
}

} // namespace NS
