// Digests by GLib.
#include "Foundation/Text/MessageDigest.h"

#include <glib.h>
#include <memory>

namespace NS {

MD5Digest messageDigestMD5(std::string_view bytes) {
  MD5Digest digest{};
  gsize length = digest.size();
  std::unique_ptr<GChecksum, decltype(&g_checksum_free)> checksum(g_checksum_new(G_CHECKSUM_MD5),
                                                                  &g_checksum_free);
  if (!bytes.empty())
    g_checksum_update(checksum.get(), reinterpret_cast<const guchar *>(bytes.data()),
                      static_cast<gssize>(bytes.size()));
  g_checksum_get_digest(checksum.get(), digest.data(), &length);
  return digest;
}

} // namespace NS
