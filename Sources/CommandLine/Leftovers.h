// The places where applications leave files.
#pragma once

#include <string>
#include <vector>

namespace kw {

// The folders of this user and of the system that are here and in which each
// application has items of its own name: its settings, data, caches and logs,
// and the files that start it. Those of the user come first.
std::vector<std::string> placesOfLeftovers();

// The items in these places that have the name of the application, in any case.
std::vector<std::string> leftoversOf(const std::string &name, bool byWords, bool withCopies);

} // namespace kw
