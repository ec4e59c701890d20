// Category Hashing: MD5 and Base64 of texts.
//
// No state; any thread may call it. On failure the functions return an empty
// optional and report nothing.
#pragma once

#include "Foundation/Text/Transform.h"

#include <optional>
#include <string>
#include <string_view>

namespace kw {

// The MD5 of the string's bytes, as 32 lower-case hexadecimal digits.
std::string md5Hash(std::string_view string);

// Runs a transform over the data. Empty when the transform is null, refuses its
// input or fails.
std::optional<std::string> base64helper(std::string_view data, NS::Transform *transform);
// The data as Base64 text, in one line.
std::optional<std::string> base64enc(std::string_view data);
// Decodes Base64 text; empty when the text is not Base64.
std::optional<std::string> base64dec(std::string_view string);

} // namespace kw
