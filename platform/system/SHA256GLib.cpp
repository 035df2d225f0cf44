#include "platform/system/SHA256.h"

#include <glib.h>

namespace platform {

SHA256::SHA256() : checksum_(g_checksum_new(G_CHECKSUM_SHA256)) {}

void SHA256::add(std::span<const std::byte> bytes)
{
    g_checksum_update(checksum_.get(), reinterpret_cast<const guchar*>(bytes.data()),
                      static_cast<gssize>(bytes.size()));
}

std::string SHA256::digest()
{
    return g_checksum_get_string(checksum_.get());
}

void SHA256::release(_GChecksum* checksum)
{
    g_checksum_free(checksum);
}

} // namespace platform
