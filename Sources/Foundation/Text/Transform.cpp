// The Base64 transforms.
#include "Foundation/Text/Transform.h"

#include "Foundation/Text/Internal/Base64.h"

namespace NS {
namespace {

std::optional<std::string> encoded(const std::string &data) {
  return base64FromBytes(data);
}

std::optional<std::string> decoded(const std::string &text) {
  return bytesFromBase64(text);
}

class Base64Transform final : public Transform {
public:
  using Body = std::optional<std::string> (*)(const std::string &input);
  explicit Base64Transform(Body body) : body_(body) {}

  bool setAttribute(std::string_view name, std::string_view data) override {
    if (name != TransformInputAttributeName)
      return false;
    input_ = data;
    return true;
  }
  std::optional<std::string> execute() override { return input_ ? body_(*input_) : std::nullopt; }

private:
  Body body_;
  std::optional<std::string> input_;
};

} // namespace

std::unique_ptr<Transform> Transform::encodeTransform(std::string_view kind) {
  return kind == Base64Encoding ? std::make_unique<Base64Transform>(encoded) : nullptr;
}

std::unique_ptr<Transform> Transform::decodeTransform(std::string_view kind) {
  return kind == Base64Encoding ? std::make_unique<Base64Transform>(decoded) : nullptr;
}

} // namespace NS
