#include "platform/writer/AVAssetWriterPixelConverter.h"

#include "platform/foundation/Handle.h"

#include <cstdlib>
#include <string>
#include <zimg.h>

namespace platform {

namespace {

using GraphPtr = Handle<zimg_filter_graph, zimg_filter_graph_free>;
using MemoryPtr = Handle<uint8_t, std::free>;

constexpr size_t kAlignment = 64;

size_t roundUp(size_t value)
{
    return (value + kAlignment - 1) / kAlignment * kAlignment;
}

bool failWithLastError(NSError* error)
{
    char reason[256] = "";
    zimg_get_last_error(reason, sizeof reason);
    return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                std::string("frames cannot be brought to the encoder's colours: ") + reason);
}

/// Parts the colours of pixels `left` to `right` of one row.
void splitRow(const uint8_t* __restrict pixels, uint8_t* __restrict red, uint8_t* __restrict green,
              uint8_t* __restrict blue, unsigned left, unsigned right)
{
    for (unsigned x = left; x < right; ++x) {
        red[x] = pixels[4 * x + 1];
        green[x] = pixels[4 * x + 2];
        blue[x] = pixels[4 * x + 3];
    }
}

class PixelConverterZimg final : public AVAssetWriterPixelConverter {
public:
    bool build(int width, int height, Layout layout, NSError* error)
    {
        zimg_image_format source;
        zimg_image_format_default(&source, ZIMG_API_VERSION);
        source.width = static_cast<unsigned>(width);
        source.height = static_cast<unsigned>(height);
        source.pixel_type = ZIMG_PIXEL_BYTE;
        source.color_family = ZIMG_COLOR_RGB;
        source.matrix_coefficients = ZIMG_MATRIX_RGB;
        source.transfer_characteristics = ZIMG_TRANSFER_BT709;
        source.color_primaries = ZIMG_PRIMARIES_BT709;
        source.depth = 8;
        source.pixel_range = ZIMG_RANGE_FULL;

        zimg_image_format target = source;
        target.color_family = ZIMG_COLOR_YUV;
        target.matrix_coefficients = ZIMG_MATRIX_BT709;
        target.pixel_range = ZIMG_RANGE_LIMITED;
        target.chroma_location = ZIMG_CHROMA_LEFT;
        target.subsample_w = layout == Layout::YUV444Deep ? 0 : 1;
        target.subsample_h = layout == Layout::YUV420 ? 1 : 0;
        if (layout != Layout::YUV420) {
            target.pixel_type = ZIMG_PIXEL_WORD;
            target.depth = 10;
        }

        zimg_graph_builder_params parameters;
        zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
        graph_.reset(zimg_filter_graph_build(&source, &target, &parameters));
        size_t temporaryBytes = 0;
        unsigned inputLines = 0;
        if (!graph_ || zimg_filter_graph_get_tmp_size(graph_.get(), &temporaryBytes) != ZIMG_ERROR_SUCCESS ||
            zimg_filter_graph_get_input_buffering(graph_.get(), &inputLines) != ZIMG_ERROR_SUCCESS)
            return failWithLastError(error);

        mask_ = zimg_select_buffer_mask(inputLines);
        const size_t lines = mask_ == ZIMG_BUFFER_MAX ? static_cast<size_t>(height) : size_t{mask_} + 1;
        lineBytes_ = roundUp(static_cast<size_t>(width));
        temporary_ = allocate(temporaryBytes);
        lines_ = allocate(3 * lines * lineBytes_);
        planeBytes_ = lines * lineBytes_;
        if (!temporary_ || !lines_)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "there is no memory for a frame's colours");
        return true;
    }

    bool convert(const uint8_t* pixels, size_t bytesPerRow, const Planes& planes, NSError* error) override
    {
        zimg_image_buffer_const source{};
        source.version = ZIMG_API_VERSION;
        zimg_image_buffer target{};
        target.version = ZIMG_API_VERSION;
        for (size_t i = 0; i < 3; ++i) {
            source.plane[i].data = lines_.get() + i * planeBytes_;
            source.plane[i].stride = static_cast<ptrdiff_t>(lineBytes_);
            source.plane[i].mask = mask_;
            target.plane[i].data = planes.data[i];
            target.plane[i].stride = planes.strides[i];
            target.plane[i].mask = ZIMG_BUFFER_MAX;
        }
        pixels_ = pixels;
        bytesPerRow_ = bytesPerRow;
        if (zimg_filter_graph_process(graph_.get(), &source, &target, temporary_.get(), &unpack, this, nullptr,
                                      nullptr) != ZIMG_ERROR_SUCCESS)
            return failWithLastError(error);
        return true;
    }

private:
    static MemoryPtr allocate(size_t bytes)
    {
        return MemoryPtr(static_cast<uint8_t*>(std::aligned_alloc(kAlignment, roundUp(bytes))));
    }

    static int unpack(void* user, unsigned line, unsigned left, unsigned right)
    {
        auto& self = *static_cast<PixelConverterZimg*>(user);
        uint8_t* const to = self.lines_.get() + (line & self.mask_) * self.lineBytes_;
        splitRow(self.pixels_ + line * self.bytesPerRow_, to, to + self.planeBytes_, to + 2 * self.planeBytes_, left,
                 right);
        return 0;
    }

    GraphPtr graph_;
    MemoryPtr temporary_;
    /// The rows that the library works on: red, green, blue, `planeBytes_` apart.
    MemoryPtr lines_;
    size_t lineBytes_ = 0;
    size_t planeBytes_ = 0;
    unsigned mask_ = 0;
    const uint8_t* pixels_ = nullptr;
    size_t bytesPerRow_ = 0;
};

} // namespace

std::unique_ptr<AVAssetWriterPixelConverter> AVAssetWriterPixelConverter::create(int width, int height, Layout layout,
                                                                                 NSError* error)
{
    auto converter = std::make_unique<PixelConverterZimg>();
    if (!converter->build(width, height, layout, error))
        return nullptr;
    return converter;
}

} // namespace platform
