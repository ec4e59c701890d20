// ICU's expressions, the dialect of the platform, with a bound on the cost of
// one search.
#include "Foundation/Text/RegularExpression.h"

#include "Foundation/Text/Internal/ICUStatus.h"
#include "Foundation/Text/Unicode.h"

#include <unicode/uregex.h>

namespace NS {
namespace {

constexpr std::size_t longestPattern = std::size_t{1} << 16;
constexpr std::size_t longestText = std::size_t{1} << 20;
// ICU's unit is ten thousand backtracking steps: a fraction of a second.
constexpr std::int32_t stepLimit = 250;
constexpr std::int32_t stackLimit = 8'000'000;

struct CloseExpression {
  void operator()(URegularExpression *expression) const { uregex_close(expression); }
};
using Expression = std::unique_ptr<URegularExpression, CloseExpression>;

// The byte in the text at which this unit of its UTF-16 form begins.
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
  explicit ICUExpression(Expression pattern) : pattern_(std::move(pattern)) {}

  std::optional<ByteRange> firstMatchInString(std::string_view text) const override {
    if (text.size() > longestText)
      return std::nullopt;
    std::u16string units = utf16FromBytes(text);
    UErrorCode status = U_ZERO_ERROR;
    // The clone shares the compiled pattern and has a search state of its own.
    Expression search(uregex_clone(pattern_.get(), &status));
    uregex_setText(search.get(), units.data(), static_cast<std::int32_t>(units.size()), &status);
    uregex_setTimeLimit(search.get(), stepLimit, &status);
    uregex_setStackLimit(search.get(), stackLimit, &status);
    // Searches from the start of the text (-1 means that). Each of these calls
    // does nothing once one has failed.
    bool found = uregex_find(search.get(), -1, &status) != 0;
    std::int32_t start = uregex_start(search.get(), 0, &status);
    std::int32_t end = uregex_end(search.get(), 0, &status);
    if (hasFailed(status) || !found)
      return std::nullopt;
    std::size_t location = byteOfUnit(text, static_cast<std::size_t>(start));
    return ByteRange{location, byteOfUnit(text, static_cast<std::size_t>(end)) - location};
  }

private:
  Expression pattern_; // serves only for clones
};

} // namespace

std::shared_ptr<const RegularExpression>
RegularExpression::regularExpressionWithPattern(std::string_view pattern,
                                                RegularExpressionOptions options) {
  if (pattern.size() > longestPattern)
    return nullptr;
  std::u16string units = utf16FromBytes(pattern);
  std::uint32_t flags = options & RegularExpressionCaseInsensitive ? UREGEX_CASE_INSENSITIVE : 0;
  UErrorCode status = U_ZERO_ERROR;
  Expression compiled(
      uregex_open(units.data(), static_cast<std::int32_t>(units.size()), flags, nullptr, &status));
  if (hasFailed(status))
    return nullptr;
  return std::make_shared<ICUExpression>(std::move(compiled));
}

} // namespace NS
