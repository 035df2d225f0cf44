#include "platform/pixels/CVPixelBuffer.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

using namespace platform;

namespace {

std::shared_ptr<CVPixelBuffer> make(size_t width, size_t height)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_32ARGB, &buffer), kCVReturnSuccess);
    return buffer;
}

void fill(CVPixelBuffer& buffer, uint8_t seed)
{
    ASSERT_EQ(buffer.lockBaseAddress(), kCVReturnSuccess);
    for (size_t i = 0; i < buffer.bytesPerRow() * buffer.height(); ++i)
        buffer.baseAddress()[i] = static_cast<uint8_t>(seed + i * 7);
    buffer.unlockBaseAddress();
}

bool holds(CVPixelBuffer& buffer, uint8_t seed)
{
    if (buffer.lockBaseAddress() != kCVReturnSuccess)
        return false;
    bool isRight = true;
    for (size_t i = 0; i < buffer.bytesPerRow() * buffer.height(); ++i)
        isRight = isRight && buffer.baseAddress()[i] == static_cast<uint8_t>(seed + i * 7);
    buffer.unlockBaseAddress();
    return isRight;
}

} // namespace

TEST(CVPixelBuffer, HasTheSizeAskedForAndAlignedRows)
{
    const auto buffer = make(854, 480);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->width(), 854u);
    EXPECT_EQ(buffer->height(), 480u);
    EXPECT_EQ(buffer->pixelFormatType(), 32u);
    EXPECT_EQ(buffer->bytesPerRow() % 64, 0u);
    EXPECT_GE(buffer->bytesPerRow(), 854u * 4);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer->baseAddress()) % 64, 0u);
    buffer->unlockBaseAddress();
    EXPECT_EQ(buffer->baseAddress(), nullptr);
}

TEST(CVPixelBuffer, RefusesWhatItCannotMake)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    EXPECT_EQ(CVPixelBufferCreate(0, 10, 32, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(10, 0, 32, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(16385, 10, 32, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(10, 10, 24, &buffer), kCVReturnInvalidPixelFormat);
    EXPECT_EQ(CVPixelBufferCreate(10, 10, 32, nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(buffer, nullptr);
}

TEST(CVPixelBuffer, CountsItsPixelsWhileTheyAreInMemory)
{
    const size_t before = pixelBufferBytesInMemory();
    auto buffer = make(256, 256);
    fill(*buffer, 3);
    EXPECT_EQ(pixelBufferBytesInMemory() - before, size_t{256} * 256 * 4);
    EXPECT_TRUE(holds(*buffer, 3));
    buffer.reset();
    EXPECT_EQ(pixelBufferBytesInMemory(), before);
}

TEST(CVPixelBuffer, StaysLockedUntilTheLastLockIsGivenBack)
{
    const auto buffer = make(64, 64);
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    uint8_t* const base = buffer->baseAddress();
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    buffer->unlockBaseAddress();
    EXPECT_EQ(buffer->baseAddress(), base);
    buffer->unlockBaseAddress();
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    buffer->unlockBaseAddress();
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    EXPECT_EQ(buffer->baseAddress(), base);
}

TEST(CVPixelBuffer, LetsItsPixelsBeTakenOnce)
{
    const size_t before = pixelBufferBytesInMemory();
    const auto buffer = make(64, 48);
    fill(*buffer, 9);
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    EXPECT_EQ(buffer->takePixels(), nullptr) << "they are locked";
    buffer->unlockBaseAddress();
    auto taken = buffer->takePixels();
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->width(), 64u);
    EXPECT_EQ(taken->height(), 48u);
    EXPECT_EQ(taken->bytesPerRow(), buffer->bytesPerRow());
    EXPECT_TRUE(holds(*taken, 9));
    EXPECT_EQ(buffer->width(), 64u);
    EXPECT_EQ(buffer->lockBaseAddress(), kCVReturnError);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_EQ(buffer->takePixels(), nullptr);
    taken.reset();
    EXPECT_EQ(pixelBufferBytesInMemory(), before) << "the frame's place alone is left";
}

TEST(CVPixelBuffer, MayBeMadeOnManyThreads)
{
    std::array<bool, 4> isRight{};
    {
        std::vector<std::jthread> threads;
        for (size_t t = 0; t < isRight.size(); ++t)
            threads.emplace_back([&, t] {
                bool allRight = true;
                for (uint8_t i = 0; i < 20; ++i) {
                    const auto buffer = make(96 + 16 * t, 64);
                    fill(*buffer, static_cast<uint8_t>(i + 40 * t));
                    allRight = allRight && holds(*buffer, static_cast<uint8_t>(i + 40 * t));
                }
                isRight[t] = allRight;
            });
    }
    for (const bool right : isRight)
        EXPECT_TRUE(right);
}
