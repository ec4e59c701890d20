// Changing the environment of this process, which every program that it starts
// later inherits.
//
// Thread-safe against a program being started at the same time.
#pragma once

#include <string>

namespace NS {

// Overwrites a former value. Raises InvalidArgumentException for a name that
// is empty or holds "=" or a NUL byte, and for a value that holds a NUL byte.
void setEnvironmentVariable(const std::string &name, const std::string &value);

} // namespace NS
