#include "window/toolkit/Textures.h"

#include <utility>

#include <gdk/gdk.h>
#include <glibmm/bytes.h>
#include <glibmm/error.h>

namespace stillora::window {

namespace {

bool isOpaque(const Pixels& pixels)
{
    std::byte all{0xff};
    for (int y = 0; y < pixels.height; ++y) {
        const std::byte* pixel = pixels.bytes.data() + static_cast<std::size_t>(y) * pixels.rowBytes;
        for (int x = 0; x < pixels.width; ++x)
            all &= pixel[4 * x + 3];
    }
    return all == std::byte{0xff};
}

} // namespace

Glib::RefPtr<Gdk::Texture> textureOf(std::shared_ptr<const Pixels> pixels)
{
    using Owner = std::shared_ptr<const Pixels>;
    if (!pixels || pixels->width <= 0 || pixels->height <= 0)
        return {};
    const Pixels& shown = *pixels;
    // Of an opaque picture both are the same, but without a graphics processor the toolkit converts a whole picture
    // each time that anything is drawn: multiplied colours by way of floating point.
    const GdkMemoryFormat format = isOpaque(shown) ? GDK_MEMORY_R8G8B8A8 : GDK_MEMORY_R8G8B8A8_PREMULTIPLIED;
    auto* owner = new Owner(std::move(pixels));
    GBytes* bytes = g_bytes_new_with_free_func(
        shown.bytes.data(), shown.bytes.size(), [](void* data) { delete static_cast<Owner*>(data); }, owner);
    GdkTexture* texture = gdk_memory_texture_new(static_cast<int>(shown.width), static_cast<int>(shown.height), format,
                                                 bytes, static_cast<std::size_t>(shown.rowBytes));
    g_bytes_unref(bytes);
    return Glib::wrap(texture);
}

Glib::RefPtr<Gdk::Texture> textureOf(const Bytes& file)
{
    if (file.empty())
        return {};
    try {
        return Gdk::Texture::create_from_bytes(Glib::Bytes::create(file.data(), file.size()));
    } catch (const Glib::Error&) {
        return {};
    }
}

} // namespace stillora::window
