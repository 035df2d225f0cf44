// What the writer does to one frame, on one thread.

#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "platform/writer/AVAssetWriterPixelConverter.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using namespace platform;

/// About as hard to code as a photo: slow gradients, edges, and a fine texture.
std::shared_ptr<CVPixelBuffer> makeFrame(size_t width, size_t height)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    if (CVPixelBufferCreate(width, height, kCVPixelFormatType_32ARGB, &buffer) != kCVReturnSuccess ||
        buffer->lockBaseAddress() != kCVReturnSuccess)
        std::abort();
    uint32_t random = 1;
    for (size_t y = 0; y < height; ++y) {
        uint8_t* const row = buffer->baseAddress() + y * buffer->bytesPerRow();
        for (size_t x = 0; x < width; ++x) {
            random = random * 1664525 + 1013904223;
            const double wave = 60 * std::sin(static_cast<double>(x) / 90) * std::cos(static_cast<double>(y) / 70);
            const double edge = (x / 160 + y / 120) % 2 ? 30 : 0;
            const double grain = static_cast<double>(random >> 28) / 2;
            for (size_t channel = 1; channel < 4; ++channel)
                row[4 * x + channel] =
                    static_cast<uint8_t>(90 + wave + edge + grain + 10.0 * static_cast<double>(channel));
        }
    }
    buffer->unlockBaseAddress();
    return buffer;
}

void convert(benchmark::State& state, size_t width, size_t height)
{
    const auto converter = AVAssetWriterPixelConverter::create(static_cast<int>(width), static_cast<int>(height),
                                                               AVAssetWriterPixelConverter::Layout::YUV420);
    const auto frame = makeFrame(width, height);
    if (!converter || frame->lockBaseAddress() != kCVReturnSuccess)
        std::abort();
    const size_t plane = width * height;
    const std::unique_ptr<uint8_t, decltype(&std::free)> planes(
        static_cast<uint8_t*>(std::aligned_alloc(64, 2 * plane)), &std::free);
    const auto stride = static_cast<ptrdiff_t>(width);
    const AVAssetWriterPixelConverter::Planes target{{planes.get(), planes.get() + plane, planes.get() + plane * 3 / 2},
                                                     {stride, stride / 2, stride / 2}};
    for (auto _ : state)
        if (!converter->convert(frame->baseAddress(), frame->bytesPerRow(), target))
            state.SkipWithError("not converted");
    frame->unlockBaseAddress();
}
BENCHMARK_CAPTURE(convert, 1080, 1920, 1080)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(convert, 2160, 3840, 2160)->Unit(benchmark::kMillisecond);

void encode(benchmark::State& state, const char* codec)
{
    const auto encoder = AVAssetWriterEncoder::create({.codec = codec, .width = 1920, .height = 1080});
    const auto frame = makeFrame(1920, 1080);
    if (!encoder)
        std::abort();
    std::vector<uint8_t> packet;
    for (auto _ : state)
        if (!encoder->encode(frame, packet))
            state.SkipWithError("not coded");
    state.counters["bytes"] = static_cast<double>(packet.size());
}
BENCHMARK_CAPTURE(encode, jpeg, "jpeg")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, avc1, "avc1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, hvc1, "hvc1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, apcn, "apcn")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, ap4h, "ap4h")->Unit(benchmark::kMillisecond);

} // namespace
