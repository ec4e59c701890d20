// The platform's path arithmetic on strings. No function looks at the file
// system. Runs of slashes count as one and a trailing slash is dropped, except
// for the root itself; invalid UTF-8 passes through unchanged.
#pragma once

#include <string>
#include <string_view>

namespace NS {

// "/a/b" for "/a/b/c", "/" for "/a" and "/", "" for "a" and "".
std::string stringByDeletingLastPathComponent(std::string_view path);
// "c" for "/a/b/c" and "/a/b/c/", "/" for "/", "" for "".
std::string lastPathComponent(std::string_view path);
// One slash between the two; "a/b" for "a" and "b", "b" for "" and "b".
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);
// Returns the text after the last dot of the last component, without the dot;
// empty when there is none or when the dot begins the component.
std::string pathExtension(std::string_view path);
// The path without that extension and its dot.
std::string stringByDeletingPathExtension(std::string_view path);
// The path, a dot and the extension; a path without a last component comes
// back unchanged.
std::string stringByAppendingPathExtension(std::string_view path, std::string_view extension);

// Tells whether the path holds a NUL byte, at which every system call would cut
// it short.
bool holdsNul(std::string_view path);
// Tells whether a name, joined to a folder, is that of an item within: not
// empty, not "." or "..", without a slash or a NUL byte.
bool isFileName(std::string_view name);

} // namespace NS
