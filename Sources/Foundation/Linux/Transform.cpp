// Base64 by GLib, whose decoder passes over whatever it does not know; so the
// text is judged before it sees it.
#include "Foundation/Transform.h"

#include <algorithm>
#include <glib.h>

namespace NS {
namespace {

bool isInAlphabet(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

bool isBase64(std::string_view text) {
  if (text.size() % 4 != 0)
    return false;
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding)
    text.remove_suffix(1);
  return std::all_of(text.begin(), text.end(), isInAlphabet);
}

std::optional<std::string> encoded(const std::string &data) {
  gchar *text = g_base64_encode(reinterpret_cast<const guchar *>(data.data()),
                                static_cast<gsize>(data.size()));
  std::string result = text;
  g_free(text);
  return result;
}

std::optional<std::string> decoded(const std::string &text) {
  if (!isBase64(text))
    return std::nullopt;
  gsize length = 0;
  guchar *data = g_base64_decode(text.c_str(), &length);
  std::string result(reinterpret_cast<const char *>(data), length);
  g_free(data);
  return result;
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
