// Additions to strings: cleaning of text for display, comparison of application
// names, path tests and lists. The receiver is the first argument.
//
// Small transformations that never fail. They keep no state, apart from the
// caches of the tilde expansion, and any thread may call them. Ill-formed bytes
// of a string pass through unchanged.
#pragma once

#include "Foundation/Text/RegularExpression.h"
#include "Foundation/Text/StringUtilities.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

// --- Text

// Trims white space and line breaks at both ends.
std::string trimWhiteSpace(std::string_view string);
// True for nil, for "" and for a string of only white space.
bool stringIsEmpty(const std::optional<std::string> &string);
// Tells whether the string holds only decimal digits, of any script; true for
// "".
bool isNumeric(std::string_view string);
// Removes the characters " -_,.:;" and the line feed at any place.
std::string stringByRemovingSpaces(std::string_view string);
// Capitalises the first UTF-16 unit. A letter of two units has no capital by
// that measure and stays.
std::string stringWithCapitalizedFirstLetter(std::string_view string);
// Replaces every character of the set. The substitute should hold no character
// of the set; such a character stays in the result.
std::string stringWithSubstitute(std::string_view string, std::string_view substitute,
                                 const NS::CharacterSet &forCharactersFromSet);
// Returns the text outside "<" and ">", with one space for each outermost tag
// that closes. A ">" that closes nothing hides all text up to the next "<".
std::string stripHTML(std::string_view string);
// Returns the first n pieces between single spaces, empty ones included; all of
// them when there are fewer or n is negative. Adds no ellipsis.
std::string ellipsizeAfterNWords(std::string_view string, int n);
// Tells whether the other string occurs; an empty one never occurs.
bool kws_containsString(std::string_view string, std::string_view other);
// Category Arguments. Takes a list separated by colons. Drops the pieces that
// equal the argument, and trims the others.
std::string stringByRemovingSemicolonSeparatedString(std::string_view string,
                                                     std::string_view argument);
// Category ProtectedSubstring. Returns "" when the range, in UTF-16 units, ends
// beyond the string.
std::string substringWithRangeProtected(std::string_view string, NS::Range range);
// Category Regex. Tells whether the expression matches anywhere; false for a
// null expression.
bool isMatchedByRegex(std::string_view string, const NS::RegularExpression *regex);

// Ascending when the other name is a numbered copy of the receiver, or lacks
// one of its words; otherwise same, for any further words. Case does not count.
// The receiver acts as a regular expression in the first test.
NS::ComparisonResult compareApplicationResourceNameByWords(std::string_view string,
                                                           std::string_view otherName,
                                                           std::string_view withSeparator);

// --- Paths

// Tells whether the whole components of the path occur one after another in the
// receiver, at its beginning or not: "/a/b/c" is a subpath of "/a/b" and of
// "/b". Compares byte for byte and normalises nothing.
bool isSubpathOf(std::string_view string, std::string_view path);
// Returns the mount point of the volume that holds the path; empty when
// unknown. Blocks on the file system.
std::optional<std::string> volumePath(std::string_view string);
// Returns the path without its extension, unless it is the path of a folder.
// Blocks on the file system.
std::string stringByDeletingRealPathExtension(std::string_view string);
// Expands tildes as the platform does, except in a sandboxed process: "~" is
// then the home of the user's record and not the sandbox's, and "~name" gets
// the name appended to that home. Reads the environment and the record once per
// process. A sandboxed process without a record fails an assertion on "pw".
std::string kws_stringByExpandingTildeInPath(std::string_view string);

} // namespace kw
