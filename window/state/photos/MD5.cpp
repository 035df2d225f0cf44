#include "window/state/photos/MD5.h"

#include <memory>

#include <glib.h>

namespace stillora::window {

std::string md5Of(std::string_view bytes)
{
    const std::unique_ptr<char, void (*)(void*)> digits(
        g_compute_checksum_for_data(G_CHECKSUM_MD5, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()),
        g_free);
    return digits.get();
}

} // namespace stillora::window
