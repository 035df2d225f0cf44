#include "platform/pixels/CVPixelBuffer.h"

#include "platform/foundation/Lock.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr size_t kMaxSide = 16384;
// A cache line: rows of 64 bytes let every scaler and encoder read them aligned.
constexpr size_t kRowAlignment = 64;

std::atomic<size_t> bytesInMemory{0};

/// Memory straight from the kernel, so that giving it back takes it out of the process at once. A few blocks are kept
/// for the next frames, which are all of one size: new memory costs as much time as drawing in it.
class PixelMemory final {
public:
    /// Undefined bytes, aligned to a page.
    static uint8_t* take(size_t bytes)
    {
        uint8_t* memory = takeKept(bytes);
        if (!memory) {
            void* const mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (mapped == MAP_FAILED)
                return nullptr;
            // Big pages save two thousand page faults on every frame; without them all goes on as usual.
            madvise(mapped, bytes, MADV_HUGEPAGE);
            memory = static_cast<uint8_t*>(mapped);
        }
        bytesInMemory += bytes;
        return memory;
    }

    static void give(uint8_t* memory, size_t bytes)
    {
        bytesInMemory -= bytes;
        if (!keep(memory, bytes))
            munmap(memory, bytes);
    }

private:
    struct Block {
        uint8_t* memory;
        size_t bytes;
    };

    // Two frames of the largest size.
    static constexpr size_t kMaxKeptBytes = size_t{72} << 20;

    struct Kept {
        Lock lock;
        std::vector<Block> blocks GUARDED_BY(lock);
    };

    // Never destroyed: frames may still be made while the process ends.
    static Kept& keptMemory()
    {
        static auto& kept = *new Kept;
        return kept;
    }

    static uint8_t* takeKept(size_t bytes)
    {
        Kept& kept = keptMemory();
        LockGuard guard(kept.lock);
        const auto found = std::ranges::find(kept.blocks, bytes, &Block::bytes);
        if (found == kept.blocks.end())
            return nullptr;
        uint8_t* const memory = found->memory;
        kept.blocks.erase(found);
        return memory;
    }

    static bool keep(uint8_t* memory, size_t bytes)
    {
        Kept& kept = keptMemory();
        LockGuard guard(kept.lock);
        size_t sum = bytes;
        for (const Block& block : kept.blocks)
            sum += block.bytes;
        // Blocks of an earlier job's size make room first.
        for (auto block = kept.blocks.begin(); block != kept.blocks.end() && sum > kMaxKeptBytes;) {
            if (block->bytes == bytes) {
                ++block;
                continue;
            }
            sum -= block->bytes;
            munmap(block->memory, block->bytes);
            block = kept.blocks.erase(block);
        }
        if (sum > kMaxKeptBytes)
            return false;
        kept.blocks.push_back({memory, bytes});
        return true;
    }
};

} // namespace

/// The pixels, one owner each.
struct CVPixelBuffer::Storage {
    explicit Storage(size_t length) : bytes(length), memory(PixelMemory::take(length)) {}
    ~Storage()
    {
        if (memory)
            PixelMemory::give(memory, bytes);
    }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    const size_t bytes;
    uint8_t* const memory;
};

CVPixelBuffer::CVPixelBuffer(size_t width, size_t height, size_t bytesPerRow, std::unique_ptr<Storage> storage)
    : width_(width), height_(height), bytesPerRow_(bytesPerRow), storage_(std::move(storage))
{}

CVPixelBuffer::~CVPixelBuffer() = default;

int32_t CVPixelBuffer::lockBaseAddress()
{
    if (!storage_)
        return kCVReturnError;
    base_ = storage_->memory;
    ++locks_;
    return kCVReturnSuccess;
}

void CVPixelBuffer::unlockBaseAddress()
{
    if (locks_ > 0 && --locks_ == 0)
        base_ = nullptr;
}

std::shared_ptr<CVPixelBuffer> CVPixelBuffer::takePixels()
{
    if (!storage_ || locks_ > 0)
        return nullptr;
    return std::shared_ptr<CVPixelBuffer>(new CVPixelBuffer(width_, height_, bytesPerRow_, std::move(storage_)));
}

int32_t CVPixelBufferCreate(size_t width, size_t height, uint32_t pixelFormatType,
                            std::shared_ptr<CVPixelBuffer>* buffer)
{
    if (!buffer)
        return kCVReturnInvalidArgument;
    if (pixelFormatType != kCVPixelFormatType_32ARGB)
        return kCVReturnInvalidPixelFormat;
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        return kCVReturnInvalidSize;

    const size_t bytesPerRow = (width * 4 + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    auto storage = std::make_unique<CVPixelBuffer::Storage>(bytesPerRow * height);
    if (!storage->memory)
        return kCVReturnAllocationFailed;
    buffer->reset(new CVPixelBuffer(width, height, bytesPerRow, std::move(storage)));
    return kCVReturnSuccess;
}

size_t pixelBufferBytesInMemory()
{
    return bytesInMemory;
}

} // namespace platform
