#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Pictures that tests make themselves.
namespace test {

using Color = std::array<int, 3>;

inline constexpr Color kRed = {200, 40, 40};
inline constexpr Color kGreen = {40, 180, 60};
inline constexpr Color kBlue = {50, 60, 200};
inline constexpr Color kWhite = {230, 230, 230};

/// Interleaved samples of 8 bits, top row first.
struct Picture {
    size_t width = 0;
    size_t height = 0;
    size_t bands = 3;
    std::vector<uint8_t> samples;

    uint8_t* at(size_t x, size_t y) { return samples.data() + (y * width + x) * bands; }
    const uint8_t* at(size_t x, size_t y) const { return samples.data() + (y * width + x) * bands; }
};

/// One colour.
Picture plain(size_t width, size_t height, Color color);
/// Red and green above blue and white.
Picture quadrants(size_t width, size_t height);
/// Colours that change slowly in both directions.
Picture gradient(size_t width, size_t height);
/// Noise of low contrast over a gradient: as hard to encode as a photo.
Picture textured(size_t width, size_t height, unsigned seed = 1);

struct JPEGOptions {
    enum class Sampling { Full, HalfWidth, HalfBoth, HalfHeight, QuarterWidth, Grey };
    Sampling sampling = Sampling::HalfBoth;
    int quality = 95;
    bool isProgressive = false;
    /// EXIF orientation.
    std::optional<int> orientation = {};
    std::vector<uint8_t> colorProfile = {};
    /// In the place of the orientation's.
    std::vector<uint8_t> exif = {};
};

std::vector<uint8_t> jpegBytes(const Picture& picture, const JPEGOptions& options = {});
/// Of four bands: inks as such files hold them, 255 for none.
std::vector<uint8_t> inkJPEGBytes(const Picture& picture);
/// A TIFF structure of one entry, with "Exif\0\0" in front.
std::vector<uint8_t> exifBytes(int orientation);
/// The same of a camera's colour space and the index of its folder of interoperability, three letters.
std::vector<uint8_t> colorSpaceEXIFBytes(unsigned space, const std::string& index);

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
std::vector<uint8_t> readFile(const std::string& path);

/// Saves by the name's extension: png, webp, tiff, gif. Bands: 1 to 4.
/// @param bits  8, or 16 for samples multiplied with 257
void save(const Picture& picture, const std::string& path, int bits = 8, const std::vector<uint8_t>& colorProfile = {});

/// Runs a program and fails the test if it does not succeed.
void run(const std::vector<std::string>& command);

platform::NSURL url(const std::string& path);

Color pixel(const platform::CGImage& image, size_t x, size_t y);

/// The smallest rectangle, from the lower left corner, that holds all pixels other than `color`; empty for none.
platform::CGRect extentOfOthers(const platform::CGImage& image, Color color);

/// A failure that names the place if any of the three components is further than `tolerance` from what is expected.
void expectColor(const platform::CGImage& image, size_t x, size_t y, Color expected, int tolerance,
                 const std::string& what = {});

} // namespace test
