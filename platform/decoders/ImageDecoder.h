#pragma once

#include "platform/decoders/CGImageSource.h"
#include "platform/decoders/DecodingCost.h"
#include "platform/picturefiles/ImageFile.h"
#include "platform/pixels/ColorProfile.h"
#include "platform/pixels/ImageScaler.h"
#include "platform/pixels/SquareAverages.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// What all formats share: size limits, the thumbnail's size, colours and orientation. A format brings the reading of
/// its header and its pixels.
class ImageDecoder : public CGImageSource {
public:
    [[nodiscard]] std::optional<Properties> copyPropertiesAtIndex(NSError* error) final;
    [[nodiscard]] CGImagePtr createThumbnailAtIndex(const ThumbnailOptions& options, NSError* error) final;
    [[nodiscard]] bool canDecode(NSError* error) final;
    /// Formats of which nothing is decoded unless all is there need not look.
    [[nodiscard]] bool isCutOff() override { return false; }

protected:
    ImageDecoder(std::unique_ptr<ImageFile> file, std::string_view format);

    /// Fills in all but the format.
    [[nodiscard]] virtual bool readProperties(Properties& properties, NSError* error) = 0;

    /// Decodes the stored picture at exactly this size, which is not larger than its own, to sRGB.
    [[nodiscard]] virtual bool decode(size_t width, size_t height, CGImage& image, NSError* error) = 0;

    /// Of `decode`. After `readProperties`.
    [[nodiscard]] virtual DecodingCost cost() = 0;

    /// Whether `decode` will succeed; told without decoding all of the file where that is possible.
    [[nodiscard]] virtual bool probe(NSError* error);

    /// What `decode` ends with: scales the planes and turns the colours into sRGB, narrowing last where that matters.
    [[nodiscard]] bool finish(const ImagePlanes& planes, size_t width, size_t height, const ColorDescription& colors,
                              CGImage& image, NSError* error) const;

    ImageFile& file() { return *file_; }
    const Properties& properties() const { return properties_; }
    uint64_t pixelCount() const { return uint64_t{properties_.pixelWidth} * properties_.pixelHeight; }
    /// Stores an error that says what is wrong with the file; false, for use in a `return`.
    bool failDecoding(NSError* error, std::string_view what) const;

private:
    /// The cost of `decode`; nothing where it is out of proportion.
    [[nodiscard]] std::optional<DecodingCost> fairCost(NSError* error);

    const std::unique_ptr<ImageFile> file_;
    const std::string format_;
    Properties properties_;
    bool hasProperties_ = false;
};

/// @name One for each way of decoding; null only if memory is short.
/// @{
std::unique_ptr<CGImageSource> makeJPEGDecoder(std::unique_ptr<ImageFile> file);
std::unique_ptr<CGImageSource> makeModuleDecoder(std::unique_ptr<ImageFile> file, std::string_view format);
std::unique_ptr<CGImageSource> makeAVCodecDecoder(std::unique_ptr<ImageFile> file, std::string_view format);
/// @}

struct PixelSize {
    size_t width = 0;
    size_t height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

/// The size of a thumbnail: the longer side is at most `maxPixelSize`, cut to a whole number of at least 1, and never
/// more than the picture's; the other side is the nearest whole number, at least 1.
PixelSize thumbnailSize(PixelSize picture, std::optional<double> maxPixelSize);

/// Takes a picture's rows one after another and makes planes of them that are ready to be scaled; where the picture is
/// at least four times as large as wanted, whole squares of it are averaged on the way, so that neither time nor
/// memory is spent on pixels that do not count.
class RowCollector final {
public:
    /// @param bands  samples of a pixel: 1 grey, 2 grey and alpha, 3 colours, 4 colours and alpha or four inks
    /// @param hasAlpha  whether the last band is alpha; colours are multiplied with it
    /// @param depth  bits of a sample, 8 or 16
    RowCollector(PixelSize picture, size_t bands, bool hasAlpha, PixelSize wanted, unsigned depth = 8);

    /// False where memory was short.
    bool isReady() const { return memory_ != nullptr; }

    /// The next row, interleaved samples of the depth that was told.
    void addRow(const uint8_t* samples);
    void addRow(const uint16_t* samples);

    /// What was collected; rows that never came repeat nothing and are black.
    ImagePlanes planes() const;

private:
    template <typename Sample>
    void add(const Sample* samples);
    template <typename Sample>
    Sample* rowOfPlane(size_t plane, size_t row)
    {
        return reinterpret_cast<Sample*>(memory_ + (plane * planeHeight_ + row) * bytesPerRow_);
    }

    const PixelSize picture_;
    const size_t bands_;
    const bool hasAlpha_;
    const unsigned depth_;
    const size_t factor_;
    const size_t planeCount_;
    const size_t planeWidth_;
    const size_t planeHeight_;
    const size_t bytesPerRow_;
    uint8_t* memory_;
    size_t nextRow_ = 0;
    SquareAverages squares_;
    std::vector<uint16_t> multiplied_;
};

} // namespace platform
