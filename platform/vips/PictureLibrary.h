#pragma once

struct PictureModule;

namespace platform {

/// The library of rarer picture formats, which is loaded at first use: linked in, it and the hundred libraries that it
/// brings would cost every start of a program 20 ms, pictures or not. Any thread.
/// @return null if it cannot be loaded, which is logged once
const PictureModule* pictureLibrary();

} // namespace platform
