#include "platform/decoders/JPEGPlanes.h"

#include "platform/decoders/JPEGScan.h"

#include "platform/foundation/Handle.h"

#include <dlfcn.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

// It needs the types of the headers above.
#include <jpeglib.h>

namespace platform {

namespace {

using InverseTransform = void (*)(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);

/// What libjpeg and all that came of it have behind `jpeg_decompress_struct::idct`.
struct InverseTransforms {
    void (*start)(j_decompress_ptr);
    InverseTransform ofComponents[MAX_COMPONENTS];
};

constexpr size_t kBlockSide = DCTSIZE;
/// Of a unit in one plane.
constexpr size_t kMostUnitSide = MAX_SAMP_FACTOR * kBlockSide;
// A block that begins within a plane ends within its rows.
static_assert(alignedRow(1) % kBlockSide == 0);

/// Whether both lie in the same library.
template <typename One, typename Other>
bool areNeighbours(One one, Other other)
{
    Dl_info here{};
    Dl_info there{};
    return dladdr(reinterpret_cast<const void*>(one), &here) != 0 &&
           dladdr(reinterpret_cast<const void*>(other), &there) != 0 && here.dli_fbase == there.dli_fbase;
}

/// The library, up to the begin of a file's scan.
class Library final {
public:
    Library()
    {
        info_.err = jpeg_std_error(&errors_);
        info_.client_data = this;
        errors_.error_exit = [](j_common_ptr info) {
            std::longjmp(static_cast<Library*>(info->client_data)->failed_, 1);
        };
        errors_.emit_message = [](j_common_ptr info, int level) { info->err->num_warnings += level < 0; };
    }
    ~Library() { jpeg_destroy_decompress(&info_); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// Reads the headers and gets ready; nothing that is not as usual.
    [[nodiscard]] bool begin(std::span<const uint8_t> bytes, unsigned denominator)
    {
        if (setjmp(failed_) != 0)
            return false;
        jpeg_create_decompress(&info_);
        jpeg_mem_src(&info_, bytes.data(), bytes.size());
        if (jpeg_read_header(&info_, TRUE) != JPEG_HEADER_OK || info_.progressive_mode || info_.arith_code ||
            info_.data_precision != 8 || info_.comps_in_scan != info_.num_components)
            return false;
        info_.scale_num = 1;
        info_.scale_denom = denominator;
        info_.raw_data_out = TRUE;
        return jpeg_start_decompress(&info_) && errors_.num_warnings == 0 &&
               areNeighbours(transforms().ofComponents[0], &jpeg_start_decompress);
    }

    /// Reads the coefficients of all scans as far as the bytes go, and makes no picture of them.
    [[nodiscard]] bool readScans(std::span<const uint8_t> bytes)
    {
        // As of TurboJPEG's own limit.
        constexpr int kMostScans = 500;
        if (setjmp(failed_) != 0)
            return false;
        jpeg_create_decompress(&info_);
        jpeg_mem_src(&info_, bytes.data(), bytes.size());
        // Where they end the library waits for more, which does not come.
        info_.src->fill_input_buffer = [](j_decompress_ptr) -> boolean { return FALSE; };
        if (jpeg_read_header(&info_, TRUE) != JPEG_HEADER_OK || info_.data_precision != 8 ||
            (info_.num_components != 1 && info_.num_components != 3))
            return false;
        info_.buffered_image = TRUE;
        if (!jpeg_start_decompress(&info_))
            return false;
        int read = JPEG_SCAN_COMPLETED;
        while (read != JPEG_SUSPENDED && read != JPEG_REACHED_EOI && info_.input_scan_number <= kMostScans)
            read = jpeg_consume_input(&info_);
        return info_.input_scan_number <= kMostScans;
    }

    jpeg_decompress_struct& info() { return info_; }
    const InverseTransforms& transforms() const { return *reinterpret_cast<const InverseTransforms*>(info_.idct); }

private:
    jpeg_decompress_struct info_{};
    jpeg_error_mgr errors_{};
    std::jmp_buf failed_{};
};

/// The blocks of one component in a unit, and the codes they have.
struct Component {
    jpeg_component_info* info;
    size_t across, down;
    const JPEGCodes* first;
    const JPEGCodes* other;
    int prediction = 0;
};

/// A whole picture.
class Picture final {
public:
    Picture(Library& library, PlaneMemory& planes)
        : info_(library.info()), planes_(planes), side_(kBlockSide / info_.scale_denom),
          transform_(library.transforms().ofComponents[0]),
          scan_(std::make_unique<JPEGScan>(std::span(info_.src->next_input_byte, info_.src->bytes_in_buffer)))
    {}

    [[nodiscard]] bool decode()
    {
        if (!findComponents())
            return false;
        unsigned untilMark = info_.restart_interval;
        unsigned marks = 0;
        for (size_t y = 0; y < info_.MCU_rows_in_scan; ++y) {
            beginRow(y);
            for (size_t x = 0; x < info_.MCUs_per_row; ++x) {
                if (info_.restart_interval != 0 && untilMark-- == 0) {
                    if (!scan_->beginInterval(marks++ % 8))
                        return false;
                    untilMark = info_.restart_interval - 1;
                    for (Component& component : components_)
                        component.prediction = 0;
                }
                if (!decodeUnit(x))
                    return false;
            }
        }
        return true;
    }

private:
    [[nodiscard]] bool findComponents()
    {
        codes_.reserve(2 * size_t{NUM_HUFF_TBLS});
        size_t blocks = 0;
        for (int i = 0; i < info_.comps_in_scan; ++i) {
            jpeg_component_info* const info = info_.cur_comp_info[i];
            // Alone it is coded block by block, whatever its ratio.
            const bool isAlone = info_.comps_in_scan == 1;
            Component component{info, isAlone ? 1U : static_cast<size_t>(info->h_samp_factor),
                                isAlone ? 1U : static_cast<size_t>(info->v_samp_factor),
                                codes(JPEGCodes::Kind::First, info_.dc_huff_tbl_ptrs[info->dc_tbl_no]),
                                codes(JPEGCodes::Kind::Other, info_.ac_huff_tbl_ptrs[info->ac_tbl_no])};
            if (!component.first || !component.other || info->component_index != i || !info->quant_table)
                return false;
            blocks += component.across * component.down;
            components_.push_back(component);
        }
        nowhere_.resize(planes_.planes().planes[0].bytesPerRow);
        // Where the first component is not the finest, the library makes its blocks larger, and so does the transform.
        if (static_cast<size_t>(info_.comp_info[0].DCT_scaled_size) != side_)
            return false;
        return blocks <= JPEGScan::kMostBlocks && components_.size() == planes_.planes().count;
    }

    const JPEGCodes* codes(JPEGCodes::Kind kind, const JHUFF_TBL* table)
    {
        if (!table)
            return nullptr;
        auto made = JPEGCodes::of(kind, std::span<const uint8_t, 16>(table->bits + 1, 16), table->huffval);
        if (!made)
            return nullptr;
        return codes_.emplace_back(std::make_unique<JPEGCodes>(*made)).get();
    }

    /// Finds the rows that a row of units fills; those below the picture go nowhere.
    void beginRow(size_t unitY)
    {
        for (size_t plane = 0; plane < components_.size(); ++plane)
            for (size_t i = 0, y = unitY * components_[plane].down * side_; i < rows_[plane].size(); ++i, ++y)
                rows_[plane][i] = y < planes_.height(plane) ? planes_.row(plane, y) : nowhere_.data();
    }

    [[nodiscard]] bool decodeUnit(size_t unitX)
    {
        scan_->beginUnit();
        for (size_t plane = 0; plane < components_.size(); ++plane) {
            Component& component = components_[plane];
            for (size_t down = 0; down < component.down; ++down)
                for (size_t across = 0; across < component.across; ++across) {
                    JPEGScan::Block block;
                    if (!scan_->readBlock(*component.first, *component.other, component.prediction, block))
                        return false;
                    const size_t x = (unitX * component.across + across) * side_;
                    if (x < planes_.width(plane))
                        transform_(&info_, component.info, block.coefficients.data(), &rows_[plane][down * side_],
                                   static_cast<JDIMENSION>(x));
                }
        }
        return scan_->endUnit();
    }

    jpeg_decompress_struct& info_;
    PlaneMemory& planes_;
    /// Of a transformed block, in samples.
    const size_t side_;
    const InverseTransform transform_;
    const std::unique_ptr<JPEGScan> scan_;
    std::vector<Component> components_;
    /// Of each component, as many as a row of units has.
    std::array<std::array<JSAMPROW, kMostUnitSide>, 4> rows_{};
    std::vector<uint8_t> nowhere_;
    std::vector<std::unique_ptr<JPEGCodes>> codes_;
};

/// Whether the library's inner parts are where they have always been: a small picture comes out as by its own way.
bool isAsKnown()
{
    constexpr size_t kSide = 20;
    std::array<uint8_t, 3 * kSide * kSide> pixels{};
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint8_t>(i * i >> 3);
    const Handle<void, tjDestroy> coder(tjInitCompress());
    const Handle<void, tjDestroy> decoder(tjInitDecompress());
    unsigned char* packed = nullptr;
    unsigned long length = 0;
    if (!coder || !decoder ||
        tjCompress2(coder.get(), pixels.data(), kSide, 0, kSide, TJPF_RGB, &packed, &length, TJSAMP_444, 90, 0) != 0)
        return false;
    const Handle<unsigned char, tjFree> owner(packed);
    for (const unsigned denominator : {1U, 2U, 4U, 8U}) {
        const size_t side = (kSide + denominator - 1) / denominator;
        ImagePlanes kind;
        kind.family = ImagePlanes::Family::YUV;
        kind.count = 3;
        PlaneMemory planes(kind, side, side);
        std::array<std::array<uint8_t, kSide * kSide>, 3> expected{};
        std::array<unsigned char*, 3> pointers = {expected[0].data(), expected[1].data(), expected[2].data()};
        const auto strideAndSize = static_cast<int>(side);
        std::array<int, 3> strides = {strideAndSize, strideAndSize, strideAndSize};
        if (!planes.isReady() || !decodeJPEGPlanes({packed, length}, denominator, planes) ||
            tjDecompressToYUVPlanes(decoder.get(), packed, length, pointers.data(), strideAndSize, strides.data(),
                                    strideAndSize, 0) != 0)
            return false;
        for (size_t plane = 0; plane < 3; ++plane)
            for (size_t y = 0; y < side; ++y)
                if (std::memcmp(planes.row(plane, y), expected[plane].data() + y * side, side) != 0)
                    return false;
    }
    return true;
}

} // namespace

bool canDecodeJPEGPlanes()
{
    static const bool kIsAsKnown = isAsKnown();
    return kIsAsKnown;
}

bool decodeJPEGPlanes(std::span<const uint8_t> bytes, unsigned denominator, PlaneMemory& planes)
{
    Library library;
    return library.begin(bytes, denominator) && Picture(library, planes).decode();
}

bool canReadJPEGScans(std::span<const uint8_t> bytes)
{
    return Library().readScans(bytes);
}

} // namespace platform
