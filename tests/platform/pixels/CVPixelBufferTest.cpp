#include "platform/pixels/CVPixelBuffer.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/statvfs.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

using namespace platform;

namespace {

std::shared_ptr<CVPixelBuffer> make(size_t width, size_t height, const NSURL* folder = nullptr)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_32ARGB, folder, &buffer), kCVReturnSuccess);
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

/// A budget for one test.
class Budget final {
public:
    explicit Budget(size_t bytes) : before_(pixelBufferMemoryBudget()) { setPixelBufferMemoryBudget(bytes); }
    ~Budget() { setPixelBufferMemoryBudget(before_); }
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

private:
    const size_t before_;
};

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
    EXPECT_EQ(CVPixelBufferCreate(0, 10, 32, nullptr, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(10, 0, 32, nullptr, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(16385, 10, 32, nullptr, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(CVPixelBufferCreate(10, 10, 24, nullptr, &buffer), kCVReturnInvalidPixelFormat);
    EXPECT_EQ(CVPixelBufferCreate(10, 10, 32, nullptr, nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(buffer, nullptr);
}

TEST(CVPixelBuffer, StaysInMemoryWithinTheBudget)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(pixelBufferBytesInMemory() + (size_t{4} << 20));
    const size_t before = pixelBufferBytesInMemory();
    const auto buffer = make(256, 256, &url);
    fill(*buffer, 3);
    EXPECT_EQ(pixelBufferBytesInMemory() - before, size_t{256} * 256 * 4);
    EXPECT_TRUE(holds(*buffer, 3));
}

TEST(CVPixelBuffer, LeavesMemoryBeyondTheBudgetAndComesBackUnchanged)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(0);
    const size_t before = pixelBufferBytesInMemory();
    std::vector<std::shared_ptr<CVPixelBuffer>> buffers;
    for (uint8_t i = 0; i < 20; ++i) {
        buffers.push_back(make(100 + i, 90, &url));
        fill(*buffers.back(), i);
    }
    EXPECT_EQ(pixelBufferBytesInMemory(), before);
    for (uint8_t i = 0; i < 20; ++i)
        EXPECT_TRUE(holds(*buffers[i], i)) << int{i};
    EXPECT_EQ(pixelBufferBytesInMemory(), before);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "the file has no name";
}

TEST(CVPixelBuffer, StaysInMemoryWhileItIsLocked)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(0);
    const auto buffer = make(64, 64, &url);
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    uint8_t* const base = buffer->baseAddress();
    ASSERT_EQ(buffer->lockBaseAddress(), kCVReturnSuccess);
    buffer->unlockBaseAddress();
    EXPECT_EQ(buffer->baseAddress(), base);
    base[0] = 1;
    buffer->unlockBaseAddress();
    EXPECT_EQ(buffer->baseAddress(), nullptr);
}

TEST(CVPixelBuffer, KeepsItsPixelsInMemoryWhereTheFolderIsMissing)
{
    const NSURL url = test::url("/nonexistent/folder");
    const Budget budget(0);
    const auto buffer = make(64, 64, &url);
    fill(*buffer, 9);
    EXPECT_TRUE(holds(*buffer, 9));
    EXPECT_GE(pixelBufferBytesInMemory(), size_t{64} * 64 * 4);
}

TEST(CVPixelBuffer, KeepsItsPixelsInMemoryWhereTheFileCannotGrow)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(0);
    // A limit on file lengths is answered like a full disk.
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = before;
    small.rlim_cur = size_t{100} << 10;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::vector<std::shared_ptr<CVPixelBuffer>> buffers;
    for (uint8_t i = 0; i < 4; ++i) {
        buffers.push_back(make(128, 128, &url));
        fill(*buffers.back(), i);
    }
    const size_t inMemory = pixelBufferBytesInMemory();
    bool isRight = true;
    for (uint8_t i = 0; i < 4; ++i)
        isRight = isRight && holds(*buffers[i], i);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_TRUE(isRight);
    EXPECT_GE(inMemory, size_t{3} * 128 * 128 * 4);
}

TEST(CVPixelBuffer, GivesItsPlaceInTheFileToTheNext)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(0);
    const auto kept = make(64, 64, &url);
    fill(*kept, 1);
    for (uint8_t i = 0; i < 50; ++i) {
        const auto passing = make(512, 512, &url);
        fill(*passing, i);
        ASSERT_TRUE(holds(*passing, i));
    }
    EXPECT_TRUE(holds(*kept, 1));
}

TEST(CVPixelBuffer, MayBeMadeAndSpilledOnManyThreads)
{
    const TemporaryFolder folder;
    const NSURL url = test::url(folder.path());
    const Budget budget(0);
    std::array<bool, 4> isRight{};
    {
        std::vector<std::jthread> threads;
        for (size_t t = 0; t < isRight.size(); ++t)
            threads.emplace_back([&, t] {
                bool allRight = true;
                for (uint8_t i = 0; i < 20; ++i) {
                    const auto buffer = make(96 + 16 * t, 64, &url);
                    fill(*buffer, static_cast<uint8_t>(i + 40 * t));
                    allRight = allRight && holds(*buffer, static_cast<uint8_t>(i + 40 * t));
                }
                isRight[t] = allRight;
            });
    }
    for (const bool right : isRight)
        EXPECT_TRUE(right);
}
