// Digests by GLib.
#include "Foundation/Text/MessageDigest.h"

#include <glib.h>

namespace NS {

MD5Digest messageDigestMD5(std::string_view bytes) {
  MD5Digest digest{};
  gsize length = digest.size();
  g_autoptr(GChecksum) checksum = g_checksum_new(G_CHECKSUM_MD5);
  if (!bytes.empty())
    g_checksum_update(checksum, reinterpret_cast<const guchar *>(bytes.data()),
                      static_cast<gssize>(bytes.size()));
  g_checksum_get_digest(checksum, digest.data(), &length);
  return digest;
}

} // namespace NS
