#pragma once

#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

namespace stillora {

/// Called a few times a second on the thread that waits for work on a sound, with the bytes that were written so far;
/// answers whether to go on. Work that is not to go on gives `ErrorCode::Cancelled` and leaves nothing behind.
using WorkProgress = std::function<bool(std::uint64_t)>;

/// What the picture of a sound looks like: black on its ground.
struct WaveformStyle {
    enum class Ground { Clear, White };

    /// Of an edge of the picture.
    static constexpr int kMostPixels = 16384;

    /// In pixels, 1 to `kMostPixels`.
    int width = 1000;
    /// In pixels, 1 to `kMostPixels`.
    int height = 200;
    Ground ground = Ground::Clear;
};

/// Draws how loud a sound is over time: one line for each column of pixels, mirrored about the middle, the loudest as
/// high as the picture.
///
/// @param sound     as it was checked
/// @param style     how it looks
/// @param progress  may be empty; the bytes are always 0
/// @return a PNG file, or `ErrorCode::OutOfRange` for a size that no picture has, `Unsupported` for a sound that is
/// damaged
///         or was exchanged since it was checked, `Cancelled`, or `Failed` where there is no memory for the picture
STILLORA_EXPORT Result<Bytes> drawWaveform(const SoundFacts& sound, const WaveformStyle& style = {},
                                           const WorkProgress& progress = {});

/// How loud a sound is over time, as `drawWaveform` draws it, for a display that draws it by itself.
///
/// @param sound     as it was checked
/// @param count     of equal parts of the sound, 1 to `WaveformStyle::kMostPixels`
/// @param progress  may be empty; the bytes are always 0
/// @return for each part from 0 for silence to 1 for the loudest, or the errors of `drawWaveform`
STILLORA_EXPORT Result<std::vector<float>> waveformLevels(const SoundFacts& sound, int count,
                                                          const WorkProgress& progress = {});

/// A sound file that was made.
struct SoundFile {
    std::filesystem::path path;
    std::uint64_t bytes = 0;
};

/// Saves a sound, or the part of it that is wanted, as AAC in an M4A file of the same name.
///
/// @param sound     as it was checked
/// @param folder    made if it is missing; what it holds is never overwritten, the file then gets another name
/// @param progress  may be empty
/// @return the file, or what kept it from being made: `ErrorCode::Unsupported` for a sound that is damaged,
/// `NoPermission`,
///         `DiskFull` or `FileExists` for the folder, `Cancelled`, or `Failed`; nothing is then left behind
STILLORA_EXPORT Result<SoundFile> convertSound(const SoundFacts& sound, const std::filesystem::path& folder,
                                               const WorkProgress& progress = {});

/// As `convertSound`, under a name of the caller's.
///
/// @param sound     as it was checked
/// @param file      the M4A file to be made; nothing may be there yet
/// @param progress  may be empty
/// @return the errors of `convertSound`; `FileExists` where something is already there, which stays as it is
STILLORA_EXPORT Result<SoundFile> convertSoundToFile(const SoundFacts& sound, const std::filesystem::path& file,
                                                     const WorkProgress& progress = {});

/// Cuts the wanted part out of a sound without encoding it anew.
///
/// @param sound     as it was checked, with a selection
/// @param file      the M4A file to be made; nothing may be there yet
/// @param progress  may be empty
/// @return the file, or `ErrorCode::NeedsEncoding` for a sound that no M4A file can hold as it is, which `convertSound`
///         helps, `FileExists` where something is already there, or the errors of `convertSound`
STILLORA_EXPORT Result<SoundFile> trimSound(const SoundFacts& sound, const std::filesystem::path& file,
                                            const WorkProgress& progress = {});

} // namespace stillora
