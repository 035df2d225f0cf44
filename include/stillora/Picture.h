#pragma once

#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>

namespace stillora {

/// How a photo is to be shown as a frame.
struct FrameStyle {
    /// As in `MovieSettings`.
    std::int64_t quality = kAutomaticQuality;
    bool reducesBorders = false;
    /// Outline the faces that are found.
    bool showsFaces = false;
    /// A frame by itself is the first of its movie, which carries one.
    Watermark watermark = Watermark::Usual;
};

/// A photo as the frame of a movie.
struct Frame {
    /// A PNG file.
    Bytes picture;
    Size size;
    /// That were found; 0 where they were not looked for.
    std::size_t faceCount = 0;
};

/// Draws a photo by the code that draws movies.
///
/// @param photo  as it was checked
/// @param style  how it is shown
STILLORA_EXPORT Result<Frame> renderFrame(const PhotoFacts& photo, const FrameStyle& style = {});

/// More frames are not drawn on one sheet.
inline constexpr std::size_t kMostFramesOfContactSheet = 10000;

/// All frames of a movie as they will be, made small and numbered from 1, in one picture of up to 40 columns. Drawn by
/// the code that draws movies, on all processors.
///
/// @param request   what the movie would be made of
/// @param progress  called after each frame, by one thread at a time; false stops the work. May be empty
/// @return a PNG file
STILLORA_EXPORT Result<Bytes>
renderContactSheet(const MovieRequest& request,
                   const std::function<bool(std::size_t done, std::size_t total)>& progress = {});

/// A picture in memory, as displays take it: rows of pixels from the top, each of four bytes for red, green, blue and
/// alpha, the colours multiplied with it.
struct Pixels {
    int width = 0;
    int height = 0;
    /// From one row to the next.
    std::size_t rowBytes = 0;
    Bytes bytes;
};

/// Which frame of its movie a photo is: some carry the watermark.
struct FramePlace {
    std::size_t index = 0;
    /// How many photos the movie has.
    std::size_t count = 1;
};

/// A photo as the frame of a movie, in memory.
struct FramePixels {
    Pixels pixels;
    /// As in `Frame`.
    std::size_t faceCount = 0;
};

/// As `renderFrame`, for a display.
/// @param photo      as it was checked
/// @param style      how it is shown
/// @param place      of the photo in its movie
/// @param mostLines  a frame of more is scaled down to so many, once it is drawn; 0 leaves it as it is
STILLORA_EXPORT Result<FramePixels> drawFrame(const PhotoFacts& photo, const FrameStyle& style = {},
                                              FramePlace place = {}, std::size_t mostLines = 0);

/// The average colour of a picture file; nothing for what is no picture.
STILLORA_EXPORT std::optional<Color> averageColorOf(const std::filesystem::path& file);

/// A picture file scaled down until it fits into a box, upright; never enlarged.
/// @return a PNG file
STILLORA_EXPORT Result<Bytes> fittedPicture(const std::filesystem::path& file, Size box);

/// As `fittedPicture`, for a display.
STILLORA_EXPORT Result<Pixels> fittedPixels(const std::filesystem::path& file, Size box);

/// A picture of any kind that is read, such as a cover, as a PNG file.
STILLORA_EXPORT Result<Bytes> pictureAsPNG(std::span<const std::byte> picture);

/// As `pictureAsPNG`, for a display.
STILLORA_EXPORT Result<Pixels> pixelsOfPicture(std::span<const std::byte> picture);

/// A picture in memory as a PNG file.
STILLORA_EXPORT Result<Bytes> pngOfPixels(const Pixels& pixels);

} // namespace stillora
