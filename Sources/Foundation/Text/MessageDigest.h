// Digests of bytes in memory. Pure; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace NS {

using MD5Digest = std::array<std::uint8_t, 16>;

// Only for recognising equal texts, never for security.
MD5Digest messageDigestMD5(std::string_view bytes);

} // namespace NS
