#pragma once

namespace stillora::window {

/// Has what plays movies looked for and started up on another thread, once for the process. The first movie would do it
/// on the main thread, which stands still meanwhile: for a quarter of a second where a user's list of decoders is made
/// for the first time, and longer where there are many.
void preparePlayer();

} // namespace stillora::window
