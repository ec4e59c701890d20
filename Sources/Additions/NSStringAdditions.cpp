// Text, names, lists and the path test that does not use the file system.
#include "Additions/NSStringAdditions.h"

#include "Additions/ApplicationName.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <cstdint>

namespace kw {
namespace {

constexpr std::string_view spaceCharacters = " -_,.:;\n";

} // namespace

std::string trimWhiteSpace(std::string_view string) {
  return NS::stringByTrimmingCharactersInSet(string,
                                             NS::CharacterSet::whitespaceAndNewlineCharacterSet());
}

bool stringIsEmpty(const std::optional<std::string> &string) {
  return !string || trimWhiteSpace(*string).empty();
}

bool isNumeric(std::string_view string) {
  NS::CharacterSet digits = NS::CharacterSet::decimalDigitCharacterSet();
  for (std::size_t index = 0; index < string.size();) {
    NS::DecodedCharacter character = NS::decodeCharacter(string, index);
    if (!character.wellFormed || !digits.characterIsMember(character.value))
      return false;
    index += character.length;
  }
  return true;
}

std::string stringByRemovingSpaces(std::string_view string) {
  std::string joined;
  std::copy_if(string.begin(), string.end(), std::back_inserter(joined),
               [](char c) { return spaceCharacters.find(c) == std::string_view::npos; });
  return joined;
}

std::string stringWithCapitalizedFirstLetter(std::string_view string) {
  if (string.empty())
    return "";
  NS::DecodedCharacter first = NS::decodeCharacter(string, 0);
  if (!first.wellFormed || first.value >= 0x10000)
    return std::string(string);
  return NS::capitalizedWord(string.substr(0, first.length)) +
         std::string(string.substr(first.length));
}

std::string stringWithSubstitute(std::string_view string, std::string_view substitute,
                                 const NS::CharacterSet &forCharactersFromSet) {
  std::string replaced;
  while (auto range = NS::rangeOfCharacterFromSet(string, forCharactersFromSet)) {
    replaced += string.substr(0, range->location);
    replaced += substitute;
    string.remove_prefix(range->location + range->length);
  }
  replaced += string;
  return replaced;
}

std::string stripHTML(std::string_view string) {
  std::string text;
  text.reserve(string.size());
  std::uint32_t depth = 0; // wraps at one ">" too many, and so hides the text after it
  for (char c : string) {
    if (c == '<') {
      ++depth;
    } else if (c == '>') {
      if (--depth == 0)
        text += ' ';
    } else if (depth == 0) {
      text += c;
    }
  }
  return text;
}

std::string ellipsizeAfterNWords(std::string_view string, int n) {
  std::vector<std::string> words = NS::componentsSeparatedByString(string, " ");
  if (n >= 0)
    words.resize(std::min(words.size(), static_cast<std::size_t>(n)));
  return NS::componentsJoinedByString(words, " ");
}

bool kws_containsString(std::string_view string, std::string_view other) {
  return NS::rangeOfString(string, other).has_value();
}

std::string stringByRemovingSemicolonSeparatedString(std::string_view string,
                                                     std::string_view argument) {
  std::vector<std::string> kept;
  // Splits literally, as the loader reads such a list: every colon separates.
  for (const std::string &piece :
       NS::componentsSeparatedByString(string, ":", NS::StringSearch::Literal))
    if (std::string trimmed = trimWhiteSpace(piece); trimmed != argument)
      kept.push_back(std::move(trimmed));
  return NS::componentsJoinedByString(kept, ":");
}

std::string substringWithRangeProtected(std::string_view string, NS::Range range) {
  std::size_t length = NS::utf16Length(string);
  if (range.location > length || range.length > length - range.location)
    return "";
  return NS::substringWithRange(string, range);
}

bool isMatchedByRegex(std::string_view string, const NS::RegularExpression *regex) {
  return regex && regex->firstMatchInString(string).has_value();
}

NS::ComparisonResult compareApplicationResourceNameByWords(std::string_view string,
                                                           std::string_view otherName,
                                                           std::string_view withSeparator) {
  ApplicationName name(string, withSeparator);
  bool isSame = !name.hasNumberedCopy(otherName) && name.hasItsWordsIn(otherName);
  return isSame ? NS::ComparisonResult::OrderedSame : NS::ComparisonResult::OrderedAscending;
}

bool isSubpathOf(std::string_view string, std::string_view path) {
  auto occurs = [](std::string_view text, std::string_view target) {
    return NS::rangeOfString(text, target, NS::StringSearch::Literal).has_value();
  };
  if (!occurs(string, path))
    return false;
  return path == "/" || occurs(std::string(string) + "/", std::string(path) + "/");
}

} // namespace kw
