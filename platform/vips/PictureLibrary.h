#pragma once

struct PictureModule;

namespace platform {

/// Settles what the library would note in the environment itself when it is loaded: by then other threads look up
/// theirs there, and what they hold is freed as the environment grows. Before any other thread runs.
void settlePictureLibrary();

/// The library of rarer picture formats, which is loaded at first use: linked in, it and the hundred libraries that it
/// brings would cost every start of a program 20 ms, pictures or not. Any thread.
/// @return null if it cannot be loaded, which is logged once
const PictureModule* pictureLibrary();

} // namespace platform
