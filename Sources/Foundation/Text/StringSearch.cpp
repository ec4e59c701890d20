// Searching with canonical equivalence. A text is cut into clusters, each a
// character with the marks that belong to it; two texts are equivalent when
// their clusters are, one by one, in the decomposed form. So a match may only
// begin and end between clusters.
#include "Foundation/Text/StringUtilities.h"

#include "Foundation/Text/Internal/ICUStatus.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <cstring>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>

namespace NS {
namespace {

// The time for ordering the marks of a cluster grows with the square of their
// number; no language stacks this many.
constexpr std::size_t longestCluster = 256;

const UNormalizer2 *decomposer() {
  static const UNormalizer2 *const instance = [] {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2 *made = unorm2_getNFDInstance(&status);
    static_cast<void>(hasFailed(status));
    return made;
  }();
  return instance;
}

const UNormalizer2 *composer() {
  static const UNormalizer2 *const instance = [] {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2 *made = unorm2_getNFCInstance(&status);
    static_cast<void>(hasFailed(status));
    return made;
  }();
  return instance;
}

bool beginsCluster(const DecodedCharacter &character) {
  if (!character.wellFormed || character.value < 0x300)
    return true;
  auto value = static_cast<UChar32>(character.value);
  return (U_GET_GC_MASK(value) & U_GC_M_MASK) == 0 && unorm2_hasBoundaryBefore(composer(), value);
}

void appendDecomposed(std::u16string &units, std::string_view cluster) {
  std::u16string raw = utf16FromBytes(cluster);
  std::u16string decomposed(raw.size() * 4 + 16, u'\0'); // no form is longer
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t length =
      unorm2_normalize(decomposer(), raw.data(), static_cast<std::int32_t>(raw.size()),
                       decomposed.data(), static_cast<std::int32_t>(decomposed.size()), &status);
  if (hasFailed(status))
    units += raw;
  else
    units.append(decomposed, 0, static_cast<std::size_t>(length));
}

// A text in decomposed form. Both lists have the beginning of each cluster and,
// as their last element, the end of the text.
struct DecomposedText {
  std::u16string units;
  std::vector<std::size_t> unitStarts;
  std::vector<std::size_t> byteStarts;

  explicit DecomposedText(std::string_view text) {
    for (std::size_t index = 0; index < text.size();) {
      std::size_t end = endOfCluster(text, index);
      unitStarts.push_back(units.size());
      byteStarts.push_back(index);
      if (end - index == 1 && static_cast<unsigned char>(text[index]) < 0x80)
        units += static_cast<char16_t>(text[index]);
      else
        appendDecomposed(units, text.substr(index, end - index));
      index = end;
    }
    unitStarts.push_back(units.size());
    byteStarts.push_back(text.size());
  }

  // The cluster that begins at the unit, if any.
  std::optional<std::size_t> clusterAt(std::size_t unit) const {
    auto found = std::lower_bound(unitStarts.begin(), unitStarts.end(), unit);
    if (found == unitStarts.end() || *found != unit)
      return std::nullopt;
    return static_cast<std::size_t>(found - unitStarts.begin());
  }

private:
  static std::size_t endOfCluster(std::string_view text, std::size_t start) {
    std::size_t end = start + decodeCharacter(text, start).length;
    while (end < text.size() && end - start < longestCluster) {
      DecodedCharacter next = decodeCharacter(text, end);
      if (beginsCluster(next))
        break;
      end += next.length;
    }
    return end;
  }
};

std::vector<ByteRange> equivalentRanges(std::string_view text, std::string_view target,
                                        std::size_t limit) {
  std::vector<ByteRange> ranges;
  DecomposedText haystack(text);
  DecomposedText needle(target);
  std::size_t from = 0;
  while (ranges.size() < limit) {
    std::size_t found = haystack.units.find(needle.units, from);
    if (found == std::u16string::npos)
      break;
    auto first = haystack.clusterAt(found);
    auto last = haystack.clusterAt(found + needle.units.size());
    if (!first || !last) {
      from = found + 1;
      continue;
    }
    std::size_t location = haystack.byteStarts[*first];
    ranges.push_back({location, haystack.byteStarts[*last] - location});
    from = found + needle.units.size();
  }
  return ranges;
}

std::vector<ByteRange> literalRanges(std::string_view text, std::string_view target,
                                     std::size_t limit) {
  std::vector<ByteRange> ranges;
  std::size_t from = 0;
  while (ranges.size() < limit && from < text.size()) {
    // memmem is linear even in the worst case, unlike std::string_view::find.
    const void *found =
        ::memmem(text.data() + from, text.size() - from, target.data(), target.size());
    if (!found)
      break;
    auto location = static_cast<std::size_t>(static_cast<const char *>(found) - text.data());
    ranges.push_back({location, target.size()});
    from = location + target.size();
  }
  return ranges;
}

std::vector<ByteRange> ranges(std::string_view text, std::string_view target, StringSearch search,
                              std::size_t limit) {
  if (target.empty())
    return {};
  bool literal = search == StringSearch::Literal || (isASCII(text) && isASCII(target));
  return literal ? literalRanges(text, target, limit) : equivalentRanges(text, target, limit);
}

} // namespace

std::optional<ByteRange> rangeOfString(std::string_view text, std::string_view target,
                                       StringSearch search) {
  std::vector<ByteRange> found = ranges(text, target, search, 1);
  return found.empty() ? std::nullopt : std::optional(found.front());
}

// Searches names in ASCII, as most are, without a copy.
bool containsLowercase(std::string_view text, std::string_view target) {
  if (!isASCII(text) || !isASCII(target))
    return rangeOfString(lowercaseString(text), target, StringSearch::Equivalent).has_value();
  return !target.empty() &&
         std::search(text.begin(), text.end(), target.begin(), target.end(),
                     [](char c, char lower) { return lowercaseASCII(c) == lower; }) != text.end();
}

std::vector<ByteRange> rangesOfString(std::string_view text, std::string_view target,
                                      StringSearch search) {
  return ranges(text, target, search, static_cast<std::size_t>(-1));
}

} // namespace NS
