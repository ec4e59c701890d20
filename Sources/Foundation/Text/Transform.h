// The platform's data transforms: an object that takes its input as an
// attribute and returns its result from execute().
//
// Not thread-safe; one thread configures and executes a transform.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace NS {

inline constexpr std::string_view TransformInputAttributeName = "INPUT";
inline constexpr std::string_view Base64Encoding = "base64";

class Transform {
public:
  virtual ~Transform() = default;

  // Null for a kind other than Base64Encoding.
  static std::unique_ptr<Transform> encodeTransform(std::string_view kind);
  static std::unique_ptr<Transform> decodeTransform(std::string_view kind);

  // Keeps a copy of the data. False when the transform has no such attribute.
  virtual bool setAttribute(std::string_view name, std::string_view data) = 0;
  // Empty without an input, and when the input is not text of the encoding: a
  // character outside its alphabet (line breaks too), wrong padding or a wrong
  // length. The encoded text is one line.
  virtual std::optional<std::string> execute() = 0;
};

} // namespace NS
