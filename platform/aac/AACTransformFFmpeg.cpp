#include "platform/aac/AACTransform.h"

#include "platform/foundation/Handle.h"
#include "platform/libav/FFmpegHandles.h"

extern "C" {
#include <libavutil/tx.h>
}

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace platform {
namespace {

struct Transform {
    Handle<AVTXContext, av_tx_uninit> context;
    av_tx_fn run = nullptr;
};

bool makeTransform(size_t lines, Transform& transform, NSError* error)
{
    AVTXContext* context = nullptr;
    // The library transforms at half the scale of the format.
    const float scale = 2 * 32768;
    const int result = av_tx_init(&context, &transform.run, AV_TX_FLOAT_MDCT, 0, static_cast<int>(lines), &scale, 0);
    transform.context.reset(context);
    return result >= 0 || failWithAVError(error, result, "Sound cannot be transformed");
}

double besselI0(double x)
{
    double sum = 1;
    double term = 1;
    for (int k = 1; k < 64; ++k) {
        term *= x / (2 * k) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

using Slope = std::array<float, AACTransform::kLines>;

/// The first `length` values rise from 0 to 1.
Slope slopeOf(AACShape shape, size_t length)
{
    Slope slope{};
    if (shape == AACShape::Sine) {
        for (size_t i = 0; i < length; ++i)
            slope[i] = static_cast<float>(
                std::sin(std::numbers::pi * (static_cast<double>(i) + 0.5) / (2 * static_cast<double>(length))));
        return slope;
    }
    const double alpha = length == AACTransform::kLines ? 4 : 6;
    const auto weight = [&](size_t i) {
        const double place = 2 * static_cast<double>(i) / static_cast<double>(length) - 1;
        return besselI0(std::numbers::pi * alpha * std::sqrt(1 - place * place));
    };
    double total = 0;
    for (size_t i = 0; i <= length; ++i)
        total += weight(i);
    double sum = 0;
    for (size_t i = 0; i < length; ++i) {
        sum += weight(i);
        slope[i] = static_cast<float>(std::sqrt(sum / total));
    }
    return slope;
}

const Slope& slope(AACShape shape, bool isShort)
{
    static const std::array<Slope, 4> slopes = {
        slopeOf(AACShape::Sine, AACTransform::kLines), slopeOf(AACShape::KaiserBessel, AACTransform::kLines),
        slopeOf(AACShape::Sine, AACTransform::kShortLines), slopeOf(AACShape::KaiserBessel, AACTransform::kShortLines)};
    return slopes[static_cast<size_t>(shape) + (isShort ? 2 : 0)];
}

} // namespace

struct AACTransform::Library {
    Transform longTransform;
    Transform shortTransform;
    alignas(64) std::array<float, kSamples> windowed{};
    alignas(64) std::array<float, kLines> lines{};
};

AACTransform::AACTransform(std::unique_ptr<Library> library) : library_(std::move(library)) {}

AACTransform::~AACTransform() = default;

std::unique_ptr<AACTransform> AACTransform::create(NSError* error)
{
    auto library = std::make_unique<Library>();
    if (!makeTransform(kLines, library->longTransform, error) ||
        !makeTransform(kShortLines, library->shortTransform, error))
        return nullptr;
    return std::unique_ptr<AACTransform>(new AACTransform(std::move(library)));
}

void AACTransform::transform(std::span<const float, kSamples> samples, AACSequence sequence, AACShape rising,
                             AACShape falling, std::span<float, kLines> spectrum)
{
    // Where the slope of a short window lies in a half of a long one.
    constexpr size_t kFlat = (kLines - kShortLines) / 2;
    auto& windowed = library_->windowed;
    auto& lines = library_->lines;
    if (sequence == AACSequence::Short) {
        for (size_t window = 0; window < kShortWindows; ++window) {
            const Slope& up = slope(window == 0 ? rising : falling, true);
            const Slope& down = slope(falling, true);
            const float* source = samples.data() + kFlat + window * kShortLines;
            for (size_t i = 0; i < kShortLines; ++i) {
                windowed[i] = source[i] * up[i];
                windowed[kShortLines + i] = source[kShortLines + i] * down[kShortLines - 1 - i];
            }
            library_->shortTransform.run(library_->shortTransform.context.get(), lines.data(), windowed.data(),
                                         sizeof(float));
            std::copy_n(lines.begin(), kShortLines, spectrum.begin() + static_cast<ptrdiff_t>(window * kShortLines));
        }
        return;
    }
    std::copy(samples.begin(), samples.end(), windowed.begin());
    const bool risesShortly = sequence == AACSequence::Stop;
    const bool fallsShortly = sequence == AACSequence::Start;
    const Slope& up = slope(rising, risesShortly);
    const Slope& down = slope(falling, fallsShortly);
    const size_t upFlat = risesShortly ? kFlat : 0;
    const size_t downFlat = fallsShortly ? kFlat : 0;
    std::fill_n(windowed.begin(), upFlat, 0.0F);
    std::fill_n(windowed.end() - static_cast<ptrdiff_t>(downFlat), downFlat, 0.0F);
    const size_t upLength = risesShortly ? kShortLines : kLines;
    const size_t downLength = fallsShortly ? kShortLines : kLines;
    for (size_t i = 0; i < upLength; ++i)
        windowed[upFlat + i] *= up[i];
    for (size_t i = 0; i < downLength; ++i)
        windowed[kSamples - 1 - downFlat - i] *= down[i];
    library_->longTransform.run(library_->longTransform.context.get(), lines.data(), windowed.data(), sizeof(float));
    std::copy(lines.begin(), lines.end(), spectrum.begin());
}

} // namespace platform
