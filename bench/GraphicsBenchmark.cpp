#include "platform/decoders/CGImageSource.h"
#include "platform/graphics/CGBitmapContext.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "tests/support/TestPicture.h"
#include "util/MORImageCategory.h"
#include "util/MORPalvineCommons.h"

#include <benchmark/benchmark.h>

namespace {

/// Twelve megapixels, made once; about 2.8 MB as JPEG.
class Photos final {
public:
    static const Photos& shared()
    {
        static const Photos photos;
        return photos;
    }

    std::string path(const std::string& name) const { return folder_.path(name); }

private:
    Photos()
    {
        const test::Picture picture = test::textured(4000, 3000);
        test::writeFile(path("photo.jpg"), test::jpegBytes(picture, {.quality = 79}));
        test::writeFile(path("turned.jpg"), test::jpegBytes(picture, {.quality = 79, .orientation = 6}));
        test::save(picture, path("photo.png"));
        test::save(picture, path("photo.webp"));
        test::run({"heif-enc", "-q", "60", path("photo.png"), "-o", path("photo.heic")});
    }

    const TemporaryFolder folder_;
};

platform::CGImagePtr thumbnail(const std::string& path, double bound)
{
    const auto source = platform::CGImageSource::createWithURL(test::url(path));
    return source ? source->createThumbnailAtIndex({bound, true}) : nullptr;
}

void decode(benchmark::State& state, const std::string& name)
{
    const std::string path = Photos::shared().path(name);
    for (auto _ : state)
        benchmark::DoNotOptimize(thumbnail(path, static_cast<double>(state.range(0))));
}

void measure(benchmark::State& state)
{
    const auto url = test::url(Photos::shared().path("photo.jpg"));
    for (auto _ : state)
        benchmark::DoNotOptimize(MORPalvineCommons::sizeOfImageAtURL(url));
}

/// From the file to the finished frame and its icon, as frame production does it; the frame is given back at once.
void makeFrame(benchmark::State& state)
{
    const std::string path = Photos::shared().path("photo.jpg");
    platform::TextAttributes attributes;
    attributes.fontSize = 108;
    attributes.strokeWidth = -3;
    for (auto _ : state) {
        const auto image = thumbnail(path, 1440);
        std::shared_ptr<platform::CVPixelBuffer> buffer;
        if (!image || platform::CVPixelBufferCreate(1920, 1080, platform::kCVPixelFormatType_32ARGB, &buffer) ||
            buffer->lockBaseAddress()) {
            state.SkipWithError("no frame");
            break;
        }
        platform::CGBitmapContext context(buffer->baseAddress(), 1920, 1080, buffer->bytesPerRow());
        context.clearRect({{0, 0}, {1920, 1080}});
        context.drawImage({{240, 0}, {1440, 1080}}, *image);
        context.drawTextAtPoint("Created with Stillora for Mac", {5, 162}, attributes);
        buffer->unlockBaseAddress();
        benchmark::DoNotOptimize(MORImageCategory::initWithCGImage(image, {53, 53}));
    }
}

void makeIcon(benchmark::State& state)
{
    const auto image = thumbnail(Photos::shared().path("photo.jpg"), 1440);
    for (auto _ : state)
        benchmark::DoNotOptimize(MORImageCategory::initWithCGImage(image, {53, 53}));
}

BENCHMARK_CAPTURE(decode, JPEG, "photo.jpg")->Arg(480)->Arg(960)->Arg(1440)->Arg(2880)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, turnedJPEG, "turned.jpg")->Arg(1440)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, PNG, "photo.png")->Arg(1440)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, WebP, "photo.webp")->Arg(1440)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, HEIC, "photo.heic")->Arg(1440)->Unit(benchmark::kMillisecond);
BENCHMARK(measure)->Unit(benchmark::kMicrosecond);
BENCHMARK(makeFrame)->Unit(benchmark::kMillisecond);
BENCHMARK(makeIcon)->Unit(benchmark::kMillisecond);

} // namespace
