// The folder of this program's resources, which each host finds in its own way.
//
// Thread-safe.
#pragma once

#include <string>

namespace NS {

// The folder of the main bundle. It need not exist.
std::string mainBundleFolder();

} // namespace NS
