// Changes the environment of this process, which every program that it starts
// later inherits.
//
// Thread-safe, also against the start of a program at the same time.
#pragma once

#include <cstdint>
#include <string>

namespace NS {

// Overwrites a former value. Raises InvalidArgumentException for a name that is
// empty or holds "=" or a NUL byte, and for a value that holds a NUL byte.
void setEnvironmentVariable(const std::string &name, const std::string &value);

// The block size of the variable BLOCKSIZE, as getbsize gives it: a number with
// an optional K, M or G after it. 512 when it is unset or malformed, and
// otherwise at least 512 and at most 1 GiB (2^30).
std::int64_t getbsize();

} // namespace NS
