// Escaping and back.
#include "Additions/NSString+URLAdditions.h"
#include "Foundation/Text/Unicode.h"
#include "Support/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text = kwtest::fuzzText(data, size);
  std::string encoded = kw::stringByEncodingURLEscapes(text);
  for (char c : encoded)
    kwtest::require((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                        std::string_view("-_.~%").find(c) != std::string_view::npos,
                    "nothing but escapes, letters, digits and four marks");
  auto back = kw::stringByDecodingURLEscapes(encoded);
  if (NS::isWellFormedUTF8(text))
    kwtest::require(back == text, "decoding gives back what was encoded");
  else
    kwtest::require(!back, "bytes that are no UTF-8 decode to nothing");

  if (auto decoded = kw::stringByDecodingURLEscapes(text)) {
    kwtest::require(decoded->size() <= text.size(), "decoding shortens");
    if (NS::isWellFormedUTF8(*decoded))
      kwtest::require(kw::stringByDecodingURLEscapes(kw::stringByEncodingURLEscapes(*decoded)) ==
                          decoded,
                      "a decoded text survives the way there and back");
  }
  kwtest::require(kw::kws_stringEncodedAsURL(text).find('&') == std::string::npos,
                  "no ampersand stays in an encoded URL");
  return 0;
}
