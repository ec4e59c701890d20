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
// any other text. The characters to skip may be at any place.
std::optional<std::string> bytesFromBase64(std::string_view text, std::string_view skipped = "");

} // namespace NS
