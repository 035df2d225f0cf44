#include "platform/decoders/ImageDecoder.h"
#include "platform/decoders/JPEGPlanes.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/picturefiles/JPEGHeader.h"
#include "platform/picturefiles/PictureEnd.h"
#include "platform/pixels/PlaneMemory.h"
#include "platform/pixels/SharpEdges.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <utility>

namespace platform {

namespace {

/// The sizes that a file can be decoded at for less than its full price, smallest first.
constexpr std::array<tjscalingfactor, 4> kScales = {{{1, 8}, {1, 4}, {1, 2}, {1, 1}}};

/// Hostile files repeat tiny scans to keep a decoder busy for hours.
constexpr int kFlags = TJFLAG_LIMITSCANS;

class JPEGDecoder final : public ImageDecoder {
public:
    explicit JPEGDecoder(std::unique_ptr<ImageFile> file) : ImageDecoder(std::move(file), "jpeg") {}

    bool isCutOff() override
    {
        // In the picture a byte of ones is followed by a zero, but for marks.
        constexpr std::array<uint8_t, 2> kEnd = {0xFF, 0xD9};
        return !hasMarkBehind(file(), header_.length, kEnd);
    }

private:
    bool readProperties(Properties& properties, NSError* error) override
    {
        auto header = readJPEGHeader(file());
        if (!header)
            return failDecoding(error, localized("is damaged: it has no picture header"));
        header_ = std::move(*header);
        properties.isProgressive = header_.isProgressive;
        properties.pixelWidth = header_.width;
        properties.pixelHeight = header_.height;
        properties.orientation = header_.orientation;
        properties.dpi = header_.dpi;
        properties.origin = header_.origin;
        return true;
    }

    bool decode(size_t width, size_t height, CGImage& image, NSError* error) override
    {
        return decode(file().all(), width, height, image, error);
    }

    DecodingCost cost() override
    {
        // Rows are made one after another, and cost next to nothing at the scale of a frame.
        if (!header_.hasManyScans)
            return {};
        // Two bytes for each coefficient, and a look at each in every scan.
        const auto samples = static_cast<uint64_t>(static_cast<double>(pixelCount()) * header_.samplesPerPixel);
        constexpr uint64_t kScansForByte = 6;
        return {2 * samples, samples * countJPEGScans(file(), header_) / kScansForByte};
    }

    /// Only its tables and its first rows can make a file unreadable: what is wrong behind them is shown as it is. A
    /// photo's entropy-coded data is nearly all that decoding it at a small scale costs.
    bool probe(NSError* error) override
    {
        constexpr size_t kFirstRowsBytes = 64 * 1024;
        // Of a large picture of several passes these are most of the first, whose coefficients all have to be in
        // memory.
        constexpr uint64_t kLargePixels = 2'000'000;
        constexpr size_t kFirstRowsBytesOfLarge = 8 * 1024;
        const bool isShort = header_.hasManyScans && pixelCount() > kLargePixels;
        const DecodingShare share(cost().memory);
        const auto start = file().first(header_.length + (isShort ? kFirstRowsBytesOfLarge : kFirstRowsBytes));
        CGImage image;
        return (header_.hasManyScans && canReadJPEGScans(start)) || decode(start, 1, 1, image, error);
    }

    bool decode(std::span<const uint8_t> bytes, size_t width, size_t height, CGImage& image, NSError* error)
    {
        if (header_.bitsPerSample != 8)
            return failDecoding(error, localized("is a JPEG file of another depth than 8 bits"));
        bytes = withoutUnfinishedSegment(bytes);
        // One that was used keeps its tables, which would stand in for those that a damaged file lacks.
        decompressor_.reset(tjInitDecompress());
        int fullWidth = 0;
        int fullHeight = 0;
        int subsampling = -1;
        int space = -1;
        if (!decompressor_ || tjDecompressHeader3(decompressor_.get(), bytes.data(), bytes.size(), &fullWidth,
                                                  &fullHeight, &subsampling, &space) != 0) {
            // Samplings that have no name are decoded all the same, to pixels instead of planes.
            fullWidth = static_cast<int>(header_.width);
            fullHeight = static_cast<int>(header_.height);
            subsampling = -1;
            space = header_.components == 4 ? TJCS_CMYK : TJCS_RGB;
        }
        if (!decompressor_ || static_cast<size_t>(fullWidth) != header_.width ||
            static_cast<size_t>(fullHeight) != header_.height)
            return failDecoding(error, localized("is damaged: its headers contradict each other"));

        const auto* const scale = std::ranges::find_if(kScales, [&](tjscalingfactor each) {
            return sizeAt(each).width >= width && sizeAt(each).height >= height;
        });
        const tjscalingfactor factor = scale == kScales.end() ? kScales.back() : *scale;

        if (space == TJCS_YCbCr || space == TJCS_GRAY)
            return decodePlanes(bytes, factor, subsampling, width, height, image, error);
        return decodePixels(bytes, factor, space, width, height, image, error);
    }

    ColorDescription colors() const
    {
        ColorDescription colors;
        colors.model = header_.components == 4   ? ColorDescription::Model::CMYK
                       : header_.components == 1 ? ColorDescription::Model::Grey
                                                 : ColorDescription::Model::RGB;
        colors.profile = header_.colorProfile;
        if (header_.isAdobeRGB && colors.model == ColorDescription::Model::RGB)
            colors.space = ColorDescription::kAdobeRGB;
        return colors;
    }

    /// A file that is cut off between two passes may end with the begin of a segment. That is no picture for the
    /// library, which then gives none at all of what came before, and calls it a warning.
    std::span<const uint8_t> withoutUnfinishedSegment(std::span<const uint8_t> bytes) const
    {
        constexpr size_t kLongestSegment = 2 + 0xFFFF;
        const size_t start = std::max(header_.length, bytes.size() - std::min(bytes.size(), kLongestSegment));
        for (size_t at = bytes.size(); at-- > start;) {
            // Behind the header such a byte is followed by zero or the number of an interval, or it begins a segment.
            if (bytes[at] != 0xFF || at + 1 == bytes.size() || bytes[at + 1] < 0xC0 || bytes[at + 1] == 0xFF ||
                (bytes[at + 1] >= 0xD0 && bytes[at + 1] <= 0xD9))
                continue;
            const bool isWhole =
                at + 4 <= bytes.size() && at + 2 + (size_t{bytes[at + 2]} << 8 | bytes[at + 3]) <= bytes.size();
            return isWhole ? bytes : bytes.first(at);
        }
        return bytes;
    }

    bool succeeded(int status, NSError* error) const
    {
        // A warning means a file that is cut off or damaged inside: what there is of it is shown.
        if (status == 0 || tjGetErrorCode(decompressor_.get()) == TJERR_WARNING)
            return true;
        return failDecoding(error, localized("cannot be decoded: {}", {tjGetErrorStr2(decompressor_.get())}));
    }

    PixelSize sizeAt(tjscalingfactor factor) const
    {
        return {static_cast<size_t>(TJSCALED(static_cast<int>(header_.width), factor)),
                static_cast<size_t>(TJSCALED(static_cast<int>(header_.height), factor))};
    }

    bool decodePlanes(std::span<const uint8_t> bytes, tjscalingfactor factor, int subsampling, size_t width,
                      size_t height, CGImage& image, NSError* error)
    {
        const PixelSize scaled = sizeAt(factor);
        ImagePlanes kind;
        const bool isGrey = subsampling == TJSAMP_GRAY;
        kind.family = isGrey ? ImagePlanes::Family::Grey : ImagePlanes::Family::YUV;
        kind.count = isGrey ? 1 : 3;
        kind.subsampleX = subsampling == TJSAMP_411                                ? 2
                          : subsampling == TJSAMP_420 || subsampling == TJSAMP_422 ? 1
                                                                                   : 0;
        kind.subsampleY = subsampling == TJSAMP_420 || subsampling == TJSAMP_440 ? 1 : 0;
        kind.shownWidth = static_cast<double>(header_.width) * factor.num / factor.denom;
        kind.shownHeight = static_cast<double>(header_.height) * factor.num / factor.denom;
        // The start of a file, of which no more is asked than that, is not for those who give up where something is
        // missing.
        const bool isFast = !header_.hasManyScans && bytes.size() == file().length() && canDecodeJPEGPlanes();
        PlaneMemory memory(kind, scaled.width, scaled.height);
        if (!memory.isReady())
            return failDecoding(error, localized("needs more memory than there is"));
        std::array<unsigned char*, 3> pointers{};
        std::array<int, 3> strides{};
        for (size_t i = 0; i < kind.count; ++i) {
            pointers[i] = memory.row(i, 0);
            strides[i] = static_cast<int>(memory.planes().planes[i].bytesPerRow);
        }
        if (!(isFast && decodeJPEGPlanes(bytes, static_cast<unsigned>(factor.denom), memory)) &&
            !succeeded(tjDecompressToYUVPlanes(decompressor_.get(), bytes.data(), bytes.size(), pointers.data(),
                                               static_cast<int>(scaled.width), strides.data(),
                                               static_cast<int>(scaled.height), kFlags),
                       error))
            return false;
        if (isTooCoarse(factor, memory.planes().planes[0], scaled))
            return decodePlanes(bytes, {1, factor.denom / 2}, subsampling, width, height, image, error);
        memory.repeatEdges();
        return finish(memory.planes(), width, height, colors(), image, error);
    }

    /// Decoding at a half or a quarter cuts off waves at the edges of blocks. In a photo they drown: what is lost of it
    /// lies 37 decibels below white, or deeper. But drawings and text keep a grey veil around each line, and noise is
    /// not what it was: they are worth decoding again. An eighth is the mean of each block, which is as good as any.
    static bool isTooCoarse(tjscalingfactor factor, ImagePlanes::Plane brightness, PixelSize scaled)
    {
        constexpr double kMostEdges = 12.0 / 256;
        constexpr double kMostEdgesOnFlatGround = 2.0 / 256;
        if (factor.denom != 2 && factor.denom != 4)
            return false;
        const SharpEdges edges =
            sharpEdgesOf(brightness.samples, 1, scaled.width, scaled.height, brightness.bytesPerRow);
        return edges.share > kMostEdges || edges.shareOnFlatGround > kMostEdgesOnFlatGround;
    }

    bool decodePixels(std::span<const uint8_t> bytes, tjscalingfactor factor, int space, size_t width, size_t height,
                      CGImage& image, NSError* error)
    {
        const PixelSize scaled = sizeAt(factor);
        const bool isInk = space == TJCS_CMYK || space == TJCS_YCCK;
        const size_t bands = isInk ? 4 : 3;
        std::vector<uint8_t> pixels(scaled.width * scaled.height * bands);
        if (!succeeded(tjDecompress2(decompressor_.get(), bytes.data(), bytes.size(), pixels.data(),
                                     static_cast<int>(scaled.width), 0, static_cast<int>(scaled.height),
                                     isInk ? TJPF_CMYK : TJPF_RGB, kFlags),
                       error))
            return false;
        if (isInk && header_.hasAdobeSegment)
            for (uint8_t& sample : pixels)
                sample = static_cast<uint8_t>(255 - sample);
        RowCollector rows(scaled, bands, false, {width, height});
        if (!rows.isReady())
            return failDecoding(error, localized("needs more memory than there is"));
        for (size_t y = 0; y < scaled.height; ++y)
            rows.addRow(pixels.data() + y * scaled.width * bands);
        ImagePlanes planes = rows.planes();
        planes.shownWidth *=
            static_cast<double>(header_.width) * factor.num / factor.denom / static_cast<double>(scaled.width);
        planes.shownHeight *=
            static_cast<double>(header_.height) * factor.num / factor.denom / static_cast<double>(scaled.height);
        return finish(planes, width, height, colors(), image, error);
    }

    JPEGHeader header_;
    Handle<void, tjDestroy> decompressor_;
};

} // namespace

std::unique_ptr<CGImageSource> makeJPEGDecoder(std::unique_ptr<ImageFile> file)
{
    return std::make_unique<JPEGDecoder>(std::move(file));
}

} // namespace platform
