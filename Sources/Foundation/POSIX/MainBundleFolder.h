// Where this program's resources are; each host has its own answer.
#pragma once

#include <string>

namespace NS {

// The folder of the main bundle. It need not exist.
std::string mainBundleFolder();

} // namespace NS
