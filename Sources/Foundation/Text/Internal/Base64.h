// Base64, for data transforms. The reader of XML property lists has a decoder of
// its own, since the platform accepts any characters there.
//
// Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace NS {

// One line, padded to groups of four.
std::string base64FromBytes(std::string_view bytes);

// Decodes. The digits come in groups of four, the last one padded; empty for
// any other text.
std::optional<std::string> bytesFromBase64(std::string_view text);

} // namespace NS
