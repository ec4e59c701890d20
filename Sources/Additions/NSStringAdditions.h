// What is added to strings: cleaning of texts that people see, comparison of
// application names, path tests and lists. The receiver is the first argument.
//
// Small transformations that never fail and keep no state, but for the caches
// of the tilde expansion; all may be called from any thread. Ill-formed bytes
// of a string pass through unchanged.
#pragma once

#include "Foundation/RegularExpression.h"
#include "Foundation/StringUtilities.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

// --- Text

// Without white space and line breaks at both ends.
std::string trimWhiteSpace(std::string_view string);
// True for nil, for "" and for what trims to "".
bool stringIsEmpty(const std::optional<std::string> &string);
// Whether there is nothing but decimal digits, of any script; "" qualifies.
bool isNumeric(std::string_view string);
// Without the characters " -_,.:;" and the line feed, wherever they stand.
std::string stringByRemovingSpaces(std::string_view string);
// The first UTF-16 unit capitalised. A letter that takes two units has no
// capital by that measure and stays.
std::string stringWithCapitalizedFirstLetter(std::string_view string);
// Every character of the set replaced. The substitute should hold no character
// of the set; one that does is not looked at again.
std::string stringWithSubstitute(std::string_view string, std::string_view substitute,
                                 const NS::CharacterSet &forCharactersFromSet);
// What stands outside "<" and ">", with one space for each outermost tag that
// closes. A ">" that closes nothing hides all that follows up to the next "<".
std::string stripHTML(std::string_view string);
// The first n pieces between single spaces, empty ones included; all of them
// when there are fewer or n is negative. Adds no ellipsis.
std::string ellipsizeAfterNWords(std::string_view string, int n);
// Whether the other string occurs; an empty one occurs nowhere.
bool kws_containsString(std::string_view string, std::string_view other);
// Category Arguments. The list is separated by colons: without the pieces that
// equal the argument, the others trimmed.
std::string stringByRemovingSemicolonSeparatedString(std::string_view string,
                                                     std::string_view argument);
// Category ProtectedSubstring. "" when the range, in UTF-16 units, ends beyond
// the string.
std::string substringWithRangeProtected(std::string_view string, NS::Range range);
// Category Regex. Whether the expression matches anywhere; a null expression
// does not.
bool isMatchedByRegex(std::string_view string, const NS::RegularExpression *regex);

// Ascending when the other name is a numbered copy of the receiver, or lacks
// one of its words; same otherwise, whatever other words it has. Case does not
// count. The receiver acts as a regular expression in the first test.
NS::ComparisonResult compareApplicationResourceNameByWords(std::string_view string,
                                                           std::string_view otherName,
                                                           std::string_view withSeparator);

// --- Paths

// Whether the whole components of the path occur one after another in the
// receiver, at its beginning or not: "/a/b/c" is a subpath of "/a/b" and of
// "/b". Compares byte for byte and normalises nothing.
bool isSubpathOf(std::string_view string, std::string_view path);
// The mount point of the volume that holds the path; nothing when it cannot be
// told. Blocks on the file system.
std::optional<std::string> volumePath(std::string_view string);
// Without its extension, unless a folder stands at the path. Blocks on the
// file system.
std::string stringByDeletingRealPathExtension(std::string_view string);
// As the platform expands tildes, but in a sandboxed process "~" is the home of
// the user's record and not the sandbox's; "~name" there gets the name appended
// to that home. Reads the environment and the record once per process. A
// sandboxed process without a record fails an assertion on "pw".
std::string kws_stringByExpandingTildeInPath(std::string_view string);

} // namespace kw
