#pragma once

#include "items/MORSoundtrack.h"
#include "platform/media/AVURLAsset.h"

class StageContext;

/// Seconds within which the sound may end before or after the video without items being dropped or repeated.
inline constexpr double kSoundtrackMarginSeconds = 5;
/// A soundtrack that reaches the end of the video fades out over its last seconds, so many at most.
inline constexpr double kLongestFadeSeconds = 5;

/// Builds the finished soundtrack: chooses the items that take part, converts each distinct file, lays the pieces end
/// to end, and fades and cuts them at the end of the video where they reach it. Blocks the calling thread.
///
/// When looping is asked for and the items fall more than five seconds short of the video, this never returns: the list
/// of items grows until the process is stopped.
///
/// @param totalVideoDuration      seconds
/// @param totalSoundtrackDuration seconds, the items' durations added up by the client; taken as passed
/// @param error                   out, optional: why there is no soundtrack; untouched for an empty list, a cancelled
///                                context or a folder that cannot be made
/// @return "stilloraFinishedAudio.m4a" in a folder of its own below the context's temporary folder, or null
[[nodiscard]] platform::AVURLAssetPtr
finishedSoundtrackWithSoundtracks(StageContext& context, const SoundtrackList& soundtracks, double totalVideoDuration,
                                  double totalSoundtrackDuration, bool shouldLoopSoundtrack,
                                  platform::NSError* error = nullptr);
