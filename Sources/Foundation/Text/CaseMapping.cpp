// Case mapping by ICU's root rules, so that a Turkish user's agent finds the
// same files as any other.
#include "Foundation/Text/StringUtilities.h"

#include "Foundation/Text/Internal/ICUStatus.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <memory>
#include <unicode/ucasemap.h>
#include <unicode/ustring.h>

namespace NS {
namespace {

constexpr const char *rootLocale = "";

// ICU counts in 32 bits, so longer texts are mapped piece by piece, in bytes. The
// result can differ only for a letter that the cut parts from its context.
constexpr std::size_t longestPiece = std::size_t{1} << 28;

struct CloseMap {
  void operator()(UCaseMap *map) const { ucasemap_close(map); }
};

// A mapping writes at most capacity units and returns the length that the whole
// result needs.
template <typename Mapping>
std::u16string mapped(const std::u16string &units, const Mapping &mapping) {
  std::u16string result(units.size() + 16, u'\0');
  for (;;) {
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length =
        mapping(result.data(), static_cast<std::int32_t>(result.size()), units, status);
    bool isShort = status == U_BUFFER_OVERFLOW_ERROR;
    if (hasFailed(status) && !isShort)
      return units;
    result.resize(static_cast<std::size_t>(length));
    if (!isShort)
      return result;
  }
}

} // namespace

std::string lowercaseString(std::string_view text) {
  if (isASCII(text)) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), lowercaseASCII);
    return lower;
  }
  std::string lower;
  while (!text.empty()) {
    std::u16string units = utf16FromBytes(text.substr(0, longestPiece));
    text.remove_prefix(std::min(text.size(), longestPiece));
    lower += bytesFromUTF16(mapped(units, [](UChar *to, std::int32_t capacity,
                                             const std::u16string &from, UErrorCode &status) {
      return u_strToLower(to, capacity, from.data(), static_cast<std::int32_t>(from.size()),
                          rootLocale, &status);
    }));
  }
  return lower;
}

std::string capitalizedWord(std::string_view word) {
  if (word.size() > longestPiece)
    return std::string(word);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UCaseMap, CloseMap> map(
      ucasemap_open(rootLocale, U_TITLECASE_WHOLE_STRING, &status));
  if (hasFailed(status))
    return std::string(word);
  return bytesFromUTF16(
      mapped(utf16FromBytes(word), [&map](UChar *to, std::int32_t capacity,
                                          const std::u16string &from, UErrorCode &failure) {
        return ucasemap_toTitle(map.get(), to, capacity, from.data(),
                                static_cast<std::int32_t>(from.size()), &failure);
      }));
}

} // namespace NS
