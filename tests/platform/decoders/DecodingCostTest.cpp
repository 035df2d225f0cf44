#include "platform/decoders/DecodingCost.h"

#include "platform/decoders/CGImageSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>

using namespace platform;
using testing::HasSubstr;

namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;

void append(NSData& bytes, std::string_view text)
{
    for (const char c : text)
        bytes.push_back(static_cast<uint8_t>(c));
}

void appendBigEndian(NSData& bytes, uint64_t value, int count)
{
    for (int i = count - 1; i >= 0; --i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// The start of a file with its header, which needs no pixels to be refused.
NSData pngHeader(uint32_t width, uint32_t height, uint8_t depth, uint8_t kind, bool isInterlaced)
{
    NSData bytes;
    append(bytes, "\x89PNG\r\n\x1a\n");
    appendBigEndian(bytes, 13, 4);
    NSData chunk;
    append(chunk, "IHDR");
    appendBigEndian(chunk, width, 4);
    appendBigEndian(chunk, height, 4);
    for (const int value : {int{depth}, int{kind}, 0, 0, isInterlaced ? 1 : 0})
        chunk.push_back(static_cast<uint8_t>(value));
    uint32_t sum = ~0U;
    for (const uint8_t byte : chunk) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = (sum >> 1U) ^ ((sum & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    appendBigEndian(bytes, ~sum, 4);
    appendBigEndian(bytes, 0, 4);
    append(bytes, "IDAT");
    appendBigEndian(bytes, 0x35AF061E, 4);
    return bytes;
}

/// A frame header and scans without data.
NSData jpegHeader(uint16_t width, uint16_t height, uint8_t frame, std::string_view samplings, size_t scans,
                  uint8_t componentsOfScan)
{
    NSData bytes;
    appendBigEndian(bytes, 0xFFD8FF00U | frame, 4);
    appendBigEndian(bytes, 8 + 3 * samplings.size(), 2);
    bytes.push_back(8);
    appendBigEndian(bytes, height, 2);
    appendBigEndian(bytes, width, 2);
    bytes.push_back(static_cast<uint8_t>(samplings.size()));
    for (size_t i = 0; i < samplings.size(); ++i) {
        bytes.push_back(static_cast<uint8_t>(i + 1));
        bytes.push_back(static_cast<uint8_t>(samplings[i]));
        bytes.push_back(0);
    }
    for (size_t scan = 0; scan < scans; ++scan) {
        appendBigEndian(bytes, 0xFFDA, 2);
        appendBigEndian(bytes, 6 + 2 * uint64_t{componentsOfScan}, 2);
        bytes.push_back(componentsOfScan);
        for (uint8_t i = 0; i < componentsOfScan; ++i)
            appendBigEndian(bytes, (i + 1U) << 8U, 2);
        appendBigEndian(bytes, 63 << 8, 3);
    }
    appendBigEndian(bytes, 0xFFD9, 2);
    return bytes;
}

/// Why the file is not decoded.
std::string refusal(const NSData& file)
{
    NSError error;
    const auto source = CGImageSource::createWithData(file, "file", &error);
    if (source && source->createThumbnailAtIndex({64.0, false}, &error))
        return "none";
    const std::string first = error.localizedDescription;
    if (source && !source->canDecode(&error)) {
        EXPECT_EQ(first, error.localizedDescription);
    }
    return first;
}

constexpr const char* kTooMuchMemory = "of memory to be decoded; a file of its length gets 469 MB";
constexpr const char* kTooMuchWork = "of pixels; a file of its length gets 419 MB";

} // namespace

TEST(DecodingCost, IsInProportionToTheFile)
{
    EXPECT_EQ(faultOfCost({448 * kMiB, 400 * kMiB}, 0), std::nullopt);
    EXPECT_EQ(faultOfCost({448 * kMiB + 1, 0}, 0),
              "needs 469 MB of memory to be decoded; a file of its length gets 469 MB");
    EXPECT_EQ(faultOfCost({0, 400 * kMiB + 1}, 0),
              "takes as long to decode as 419 MB of pixels; a file of its length gets 419 MB");
    // What a telephone of 200 megapixels makes.
    EXPECT_EQ(faultOfCost({1400 * kMiB, 1000 * kMiB}, 22 * kMiB), std::nullopt);
    EXPECT_TRUE(faultOfCost({1400 * kMiB, 0}, 21 * kMiB));
    EXPECT_TRUE(faultOfCost({0, 1000 * kMiB}, 3 * kMiB));
}

TEST(DecodingCost, IsKnownFromTheHeaderOfAPNG)
{
    EXPECT_THAT(refusal(pngHeader(16000, 16000, 8, 2, true)), HasSubstr(kTooMuchMemory));
    EXPECT_THAT(refusal(pngHeader(8000, 8000, 16, 6, true)), HasSubstr(kTooMuchMemory));
    EXPECT_THAT(refusal(pngHeader(16000, 16000, 8, 2, false)), HasSubstr(kTooMuchWork));
    EXPECT_THAT(refusal(pngHeader(8000, 8000, 16, 6, false)), HasSubstr(kTooMuchWork));
    // Within bounds, whatever is then found of pixels.
    for (const NSData& file :
         {pngHeader(6000, 6000, 8, 2, true), pngHeader(16000, 16000, 8, 0, false), pngHeader(9000, 9000, 1, 3, true)})
        EXPECT_THAT(refusal(file), testing::Not(HasSubstr("a file of its length")));
    // Passes are put together.
    EXPECT_THAT(refusal(pngHeader(8000, 8000, 8, 2, true)), HasSubstr(kTooMuchWork));
}

TEST(DecodingCost, CountsTextsOfAPNGThatHaveToBeUnpacked)
{
    const auto withTexts = [](size_t count) {
        NSData bytes = pngHeader(48, 48, 8, 2, false);
        NSData texts;
        for (size_t i = 0; i < count; ++i) {
            appendBigEndian(texts, 1000, 4);
            append(texts, "zTXt" + std::string(1000, 't'));
            appendBigEndian(texts, 0, 4);
        }
        // Behind the signature and the first chunk.
        bytes.insert(bytes.begin() + 33, texts.begin(), texts.end());
        return bytes;
    };
    EXPECT_THAT(refusal(withTexts(3)), testing::Not(HasSubstr("a file of its length")));
    EXPECT_THAT(refusal(withTexts(1000)), HasSubstr(kTooMuchWork));
}

TEST(DecodingCost, IsKnownFromTheHeaderAndTheScansOfAJPEG)
{
    constexpr uint8_t kBaseline = 0xC0;
    constexpr uint8_t kProgressive = 0xC2;
    const std::string full(3, '\x11');
    const std::string halved = "\x22\x11\x11";
    const std::string inks(4, '\x11');
    EXPECT_THAT(refusal(jpegHeader(16000, 16000, kProgressive, halved, 1, 3)), HasSubstr(kTooMuchMemory));
    EXPECT_THAT(refusal(jpegHeader(9000, 9000, kProgressive, full, 1, 3)), HasSubstr(kTooMuchMemory));
    EXPECT_THAT(refusal(jpegHeader(8000, 8000, kProgressive, inks, 1, 4)), HasSubstr(kTooMuchMemory));
    // As much is held where each component has a scan of its own.
    EXPECT_THAT(refusal(jpegHeader(16000, 16000, kBaseline, halved, 3, 1)), HasSubstr(kTooMuchMemory));
    EXPECT_THAT(refusal(jpegHeader(8000, 8000, kProgressive, "\x11", 500, 1)), HasSubstr(kTooMuchWork));
    for (const NSData& file :
         {jpegHeader(16000, 16000, kBaseline, halved, 1, 3), jpegHeader(9000, 9000, kProgressive, halved, 10, 3),
          jpegHeader(8000, 8000, kProgressive, "\x11", 30, 1)})
        EXPECT_THAT(refusal(file), testing::Not(HasSubstr("a file of its length")));
}

TEST(DecodingCost, IsKnownFromTheHeaderOfAWebP)
{
    // A black picture of 16383 x 16383 in 38 bytes.
    const NSData file = {0x52, 0x49, 0x46, 0x46, 0x1e, 0x00, 0x00, 0x00, 0x57, 0x45, 0x42, 0x50, 0x56,
                         0x50, 0x38, 0x4c, 0x11, 0x00, 0x00, 0x00, 0x2f, 0xfe, 0xbf, 0xff, 0x0f, 0x07,
                         0x50, 0xad, 0x6a, 0x55, 0xab, 0xff, 0x81, 0x88, 0xe8, 0x7f, 0x00, 0x00};
    EXPECT_THAT(refusal(file), HasSubstr(kTooMuchMemory));
}

TEST(DecodingShare, LetsOneInWhateverItTakesAndNoOtherMeanwhile)
{
    constexpr uint64_t kAll = ~uint64_t{0} / 2;
    std::atomic<bool> isIn = false;
    std::thread other;
    {
        const DecodingShare share(kAll);
        const DecodingShare nothing(0);
        other = std::thread([&] {
            const DecodingShare waiting(1);
            isIn = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(isIn);
    }
    other.join();
    EXPECT_TRUE(isIn);
    const DecodingShare one(1);
    const DecodingShare two(1);
}
