// Digests by the platform's own library.
#include "Foundation/Text/MessageDigest.h"

#include <CommonCrypto/CommonDigest.h>
#include <algorithm>

// Deprecated because it is not secure; here it only recognises equal texts.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace NS {

static_assert(std::tuple_size_v<MD5Digest> == CC_MD5_DIGEST_LENGTH);

MD5Digest messageDigestMD5(std::string_view bytes) {
  // A length has 32 bits there.
  constexpr std::size_t longestPiece = std::size_t{1} << 30;
  CC_MD5_CTX context;
  ::CC_MD5_Init(&context);
  while (!bytes.empty()) {
    std::size_t length = std::min(bytes.size(), longestPiece);
    ::CC_MD5_Update(&context, bytes.data(), static_cast<CC_LONG>(length));
    bytes.remove_prefix(length);
  }
  MD5Digest digest{};
  ::CC_MD5_Final(digest.data(), &context);
  return digest;
}

} // namespace NS
