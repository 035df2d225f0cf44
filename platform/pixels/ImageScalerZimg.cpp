#include "platform/pixels/ImageScaler.h"

#include "platform/foundation/Handle.h"
#include "platform/pixels/SquareAverages.h"

#include "platform/foundation/NSCache.h"

#include <zimg.h>

#include <algorithm>
#include <bit>
#include <compare>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace platform {

namespace {

/// Everything that a scaling graph depends on.
struct GraphKey {
    ImagePlanes::Family family;
    ImagePlanes::Matrix matrix;
    ImagePlanes::Siting siting;
    bool isFullRange;
    unsigned depth;
    unsigned subsampleX;
    unsigned subsampleY;
    size_t fromWidth;
    size_t fromHeight;
    double shownWidth;
    double shownHeight;
    bool hasFourth;
    size_t width;
    size_t height;
    bool isResultWide;

    auto operator<=>(const GraphKey&) const = default;
};

/// A graph may be run by several threads at a time, each with its own memory.
struct Graph {
    Handle<zimg_filter_graph, zimg_filter_graph_free> graph;
    size_t temporaryBytes = 0;
    unsigned outputMask = ZIMG_BUFFER_MAX;
    size_t outputRows = 0;
};

zimg_matrix_coefficients_e matrixOf(ImagePlanes::Matrix matrix)
{
    switch (matrix) {
    case ImagePlanes::Matrix::BT709:
        return ZIMG_MATRIX_BT709;
    case ImagePlanes::Matrix::BT2020:
        return ZIMG_MATRIX_BT2020_NCL;
    case ImagePlanes::Matrix::BT601:
        break;
    }
    return ZIMG_MATRIX_BT470_BG;
}

std::shared_ptr<const Graph> buildGraph(const GraphKey& key)
{
    const bool isYUV = key.family == ImagePlanes::Family::YUV;
    zimg_image_format from;
    zimg_image_format_default(&from, ZIMG_API_VERSION);
    from.width = static_cast<unsigned>(key.fromWidth);
    from.height = static_cast<unsigned>(key.fromHeight);
    from.active_region.left = 0;
    from.active_region.top = 0;
    from.active_region.width = key.shownWidth;
    from.active_region.height = key.shownHeight;
    from.pixel_type = key.depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    from.depth = key.depth;
    from.subsample_w = key.subsampleX;
    from.subsample_h = key.subsampleY;
    from.pixel_range = key.isFullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    from.chroma_location = key.siting == ImagePlanes::Siting::Centre ? ZIMG_CHROMA_CENTER : ZIMG_CHROMA_LEFT;
    if (key.family == ImagePlanes::Family::Grey) {
        from.color_family = ZIMG_COLOR_GREY;
        from.matrix_coefficients = ZIMG_MATRIX_UNSPECIFIED;
    } else {
        from.color_family = isYUV ? ZIMG_COLOR_YUV : ZIMG_COLOR_RGB;
        from.matrix_coefficients = isYUV ? matrixOf(key.matrix) : ZIMG_MATRIX_RGB;
    }
    from.alpha = key.hasFourth ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;

    zimg_image_format to = from;
    to.width = static_cast<unsigned>(key.width);
    to.height = static_cast<unsigned>(key.height);
    to.active_region.width = std::numeric_limits<double>::quiet_NaN();
    to.active_region.height = to.active_region.width;
    to.active_region.left = to.active_region.width;
    to.active_region.top = to.active_region.width;
    to.pixel_type = key.isResultWide ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    to.depth = key.isResultWide ? 16 : 8;
    to.subsample_w = 0;
    to.subsample_h = 0;
    to.pixel_range = ZIMG_RANGE_FULL;
    if (isYUV) {
        to.color_family = ZIMG_COLOR_RGB;
        to.matrix_coefficients = ZIMG_MATRIX_RGB;
    }

    zimg_graph_builder_params parameters;
    zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
    parameters.resample_filter = ZIMG_RESIZE_LANCZOS;
    parameters.filter_param_a = 3;
    parameters.resample_filter_uv = ZIMG_RESIZE_LANCZOS;
    parameters.filter_param_a_uv = 3;
    parameters.dither_type = ZIMG_DITHER_NONE;
    parameters.cpu_type = ZIMG_CPU_AUTO;

    auto graph = std::make_shared<Graph>();
    graph->graph.reset(zimg_filter_graph_build(&from, &to, &parameters));
    unsigned outputRows = 0;
    if (!graph->graph || zimg_filter_graph_get_tmp_size(graph->graph.get(), &graph->temporaryBytes) != 0 ||
        zimg_filter_graph_get_output_buffering(graph->graph.get(), &outputRows) != 0)
        return nullptr;
    graph->outputMask = zimg_select_buffer_mask(outputRows);
    graph->outputRows = graph->outputMask == ZIMG_BUFFER_MAX ? key.height : size_t{graph->outputMask} + 1;
    return graph;
}

/// Building one takes as long as scaling with it, and photos of one camera all want the same.
std::shared_ptr<const Graph> graphOf(const GraphKey& key)
{
    constexpr size_t kGraphs = 16;
    // Never destroyed: pictures may still be scaled while the process ends.
    static auto& graphs = *new NSCache<GraphKey, std::shared_ptr<const Graph>>(kGraphs, 0);
    auto graph = graphs.objectForKey(key);
    if (!graph) {
        graph = buildGraph(key);
        if (graph)
            graphs.setObject(graph, key);
    }
    return graph;
}

/// Where finished rows go: planes of a few rows, and the picture that they are woven into.
template <typename Image>
struct Output {
    Image* image;
    std::array<const uint8_t*, 4> planes;
    size_t bytesPerRow;
    unsigned mask;
    size_t count;
};

int weaveRow(void* user, unsigned row, unsigned left, unsigned right)
{
    const auto& output = *static_cast<const Output<CGImage>*>(user);
    const size_t offset = (row & output.mask) * output.bytesPerRow;
    const uint8_t* const red = output.planes[0] + offset;
    const uint8_t* const green = output.count > 1 ? output.planes[1] + offset : red;
    const uint8_t* const blue = output.count > 1 ? output.planes[2] + offset : red;
    const uint8_t* const fourth = output.count > 3 ? output.planes[3] + offset : nullptr;
    uint8_t* const to = output.image->row(row);

    // Whole numbers rather than bytes, which the compiler turns into vector instructions.
    constexpr bool kIsLittle = std::endian::native == std::endian::little;
    constexpr unsigned kShifts[4] = {kIsLittle ? 0 : 24, kIsLittle ? 8 : 16, kIsLittle ? 16 : 8, kIsLittle ? 24 : 0};
    const auto weave = [&](auto first) {
        for (unsigned x = left; x < right; ++x) {
            const uint32_t pixel = uint32_t{first(x)} << kShifts[0] | uint32_t{red[x]} << kShifts[1] |
                                   uint32_t{green[x]} << kShifts[2] | uint32_t{blue[x]} << kShifts[3];
            std::memcpy(to + size_t{4} * x, &pixel, sizeof pixel);
        }
    };
    if (fourth)
        weave([fourth](unsigned x) { return fourth[x]; });
    else
        weave([](unsigned) { return uint8_t{0xFF}; });
    return 0;
}

int weaveWideRow(void* user, unsigned row, unsigned left, unsigned right)
{
    const auto& output = *static_cast<const Output<WideImage>*>(user);
    const auto plane = [&](size_t i) {
        return reinterpret_cast<const uint16_t*>(output.planes[i] + (row & output.mask) * output.bytesPerRow);
    };
    const uint16_t* const red = plane(0);
    const uint16_t* const green = output.count > 1 ? plane(1) : red;
    const uint16_t* const blue = output.count > 1 ? plane(2) : red;
    const uint16_t* const fourth = output.count > 3 ? plane(3) : nullptr;
    uint16_t* to = output.image->row(row) + size_t{4} * left;
    for (unsigned x = left; x < right; ++x) {
        *to++ = fourth ? fourth[x] : uint16_t{0xFFFF};
        *to++ = red[x];
        *to++ = green[x];
        *to++ = blue[x];
    }
    return 0;
}

void prepare(CGImage& image, size_t width, size_t height, bool hasAlpha)
{
    image.width = width;
    image.height = height;
    image.bytesPerRow = width * 4;
    image.hasAlpha = hasAlpha;
    image.pixels.resize(image.bytesPerRow * height);
}

void prepare(WideImage& image, size_t width, size_t height, bool hasAlpha)
{
    image.width = width;
    image.height = height;
    image.hasAlpha = hasAlpha;
    image.samples.resize(width * 4 * height);
}

template <typename Image>
bool scale(const ImagePlanes& planes, size_t width, size_t height, Image& image, zimg_filter_graph_callback weave)
{
    constexpr bool kIsWide = std::is_same_v<Image, WideImage>;
    constexpr size_t kMaxSide = std::numeric_limits<int>::max() / 8;
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide || planes.width == 0 || planes.height == 0)
        return false;
    const auto graph = graphOf({planes.family, planes.matrix, planes.siting, planes.isFullRange, planes.depth,
                                planes.subsampleX, planes.subsampleY, planes.width, planes.height, planes.shownWidth,
                                planes.shownHeight, planes.count == 4, width, height, kIsWide});
    if (!graph)
        return false;
    prepare(image, width, height, planes.count == 4);

    const size_t rowBytes = alignedRow(width * (kIsWide ? sizeof(uint16_t) : 1));
    const size_t planeBytes = rowBytes * graph->outputRows;
    const size_t temporaryBytes = alignedRow(graph->temporaryBytes);
    uint8_t* const memory = ScratchMemory::take(ScratchMemory::Use::Scaler, temporaryBytes + planes.count * planeBytes);
    if (!memory)
        return false;

    zimg_image_buffer_const from{};
    from.version = ZIMG_API_VERSION;
    zimg_image_buffer to{};
    to.version = ZIMG_API_VERSION;
    Output<Image> output{&image, {}, rowBytes, graph->outputMask, planes.count};
    for (size_t i = 0; i < planes.count; ++i) {
        // The fourth plane stands in the fourth place, also behind a single one.
        from.plane[i].data = planes.planes[i].samples;
        from.plane[i].stride = static_cast<ptrdiff_t>(planes.planes[i].bytesPerRow);
        from.plane[i].mask = ZIMG_BUFFER_MAX;
        to.plane[i].data = memory + temporaryBytes + i * planeBytes;
        to.plane[i].stride = static_cast<ptrdiff_t>(rowBytes);
        to.plane[i].mask = graph->outputMask;
        output.planes[i] = static_cast<const uint8_t*>(to.plane[i].data);
    }
    return zimg_filter_graph_process(graph->graph.get(), &from, &to, memory, nullptr, nullptr, weave, &output) == 0;
}

} // namespace

uint8_t* ScratchMemory::take(Use use, size_t bytes)
{
    struct Block {
        Handle<uint8_t, std::free> memory;
        size_t bytes = 0;
    };
    thread_local std::array<Block, 2> blocks;
    // More than this is for a rare picture and not worth keeping.
    constexpr size_t kKept = size_t{48} << 20;

    Block& block = blocks[use == Use::Planes ? 0 : 1];
    if (bytes > block.bytes || (block.bytes > kKept && bytes <= kKept)) {
        block.memory.reset();
        block.bytes = 0;
        block.memory.reset(static_cast<uint8_t*>(std::aligned_alloc(64, alignedRow(std::max<size_t>(bytes, 64)))));
        if (!block.memory)
            return nullptr;
        block.bytes = bytes;
    }
    return block.memory.get();
}

bool scalePlanes(const ImagePlanes& planes, size_t width, size_t height, CGImage& image)
{
    return scale(planes, width, height, image, weaveRow);
}

bool scalePlanes(const ImagePlanes& planes, size_t width, size_t height, WideImage& image)
{
    return scale(planes, width, height, image, weaveWideRow);
}

bool scaleImage(const CGImage& from, size_t width, size_t height, CGImage& image)
{
    if (width == 0 || height == 0 || from.width == 0 || from.height == 0)
        return false;
    // Much larger pictures are averaged in squares first, which keeps the window of the scaler small.
    const size_t factor = std::max<size_t>(1, std::min(from.width / width, from.height / height) / 2);
    const size_t planeWidth = (from.width + factor - 1) / factor;
    const size_t planeHeight = (from.height + factor - 1) / factor;
    const size_t rowBytes = alignedRow(planeWidth);
    const size_t count = from.hasAlpha ? 4 : 3;
    uint8_t* const memory = ScratchMemory::take(ScratchMemory::Use::Planes, count * rowBytes * planeHeight);
    if (!memory)
        return false;

    ImagePlanes planes;
    planes.width = planeWidth;
    planes.height = planeHeight;
    planes.shownWidth = static_cast<double>(from.width) / static_cast<double>(factor);
    planes.shownHeight = static_cast<double>(from.height) / static_cast<double>(factor);
    planes.count = count;
    for (size_t i = 0; i < count; ++i)
        planes.planes[i] = {memory + i * rowBytes * planeHeight, rowBytes};

    SquareAverages squares(from.width, 4, factor);
    for (size_t y = 0; y < planeHeight; ++y) {
        for (size_t row = y * factor; row < std::min((y + 1) * factor, from.height); ++row)
            squares.addRow(from.row(row));
        squares.finish<uint8_t>([&](size_t column, size_t band, uint8_t mean) {
            // Byte 0 of a pixel is alpha, the last plane.
            const size_t plane = (band + 3) % 4;
            if (plane < count)
                memory[(plane * planeHeight + y) * rowBytes + column] = mean;
        });
    }
    return scalePlanes(planes, width, height, image);
}

} // namespace platform
