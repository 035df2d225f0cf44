#pragma once

#include <stillora/Picture.h>
#include <stillora/Types.h>

#include <memory>

#include <gdkmm/texture.h>

namespace stillora::window {

/// A picture for the toolkit, which shares the pixels.
Glib::RefPtr<Gdk::Texture> textureOf(std::shared_ptr<const Pixels> pixels);

/// A picture file that this program or its service made; null for what is none. For small ones: it is decoded at once.
Glib::RefPtr<Gdk::Texture> textureOf(const Bytes& file);

} // namespace stillora::window
