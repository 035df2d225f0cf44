#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"
#include "platform/media/CMTime.h"

#include <cstddef>
#include <functional>
#include <optional>

namespace platform {

/// Writes a movie anew so that no picture lasts longer than `longest`: one that does is shown several times, one after
/// the other, by the same bytes of the file. Nothing is encoded; the movie's length, its sound and the bytes of its
/// pictures stay, and each picture begins and ends when it did. For players that look at a picture's time too seldom
/// while it stands.
///
/// Understood is a movie of one picture track whose index comes in one piece: its long pictures are key frames, shown
/// in the order in which they are stored. Anything else is refused.
///
/// @param longest      above 0
/// @param to           there must be no file; nothing is left there unless it was written whole. Not flushed to the
/// disk
/// @param isCancelled  asked now and then, on the calling thread; if it says so, that is an error like any other
/// @return how many samples came to those that were there; with 0 no file was written, as there was nothing to do.
///         Nothing on failure, `error` names the movie and says why
[[nodiscard]] std::optional<size_t> repeatLongPictures(const NSURL& movie, CMTime longest, const NSURL& to,
                                                       const std::function<bool()>& isCancelled,
                                                       NSError* error = nullptr);

} // namespace platform
