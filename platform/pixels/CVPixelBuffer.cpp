#include "platform/pixels/CVPixelBuffer.h"

#include "platform/foundation/Lock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr size_t kMaxSide = 16384;
// A cache line: rows of 64 bytes let every scaler and encoder read them aligned.
constexpr size_t kRowAlignment = 64;

std::atomic<size_t> memoryBudget{size_t{256} << 20};
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

/// An unlinked file that buffers of one folder share: one descriptor for thousands of frames.
class SpillFile final {
public:
    /// The file of this folder, made at first need; null if it cannot be made.
    static std::shared_ptr<SpillFile> fileInFolder(const std::string& folder);

    explicit SpillFile(int descriptor) : descriptor_(descriptor) {}
    ~SpillFile() { close(descriptor_); }
    SpillFile(const SpillFile&) = delete;
    SpillFile& operator=(const SpillFile&) = delete;

    /// Writes the bytes to a free place; its offset, or nothing if not all could be written.
    std::optional<off_t> write(const uint8_t* bytes, size_t length);
    bool read(off_t offset, uint8_t* bytes, size_t length) const;
    /// Frees a place and gives its room back to the disk.
    void release(off_t offset, size_t length);

private:
    off_t takePlace(size_t length);

    const int descriptor_;
    Lock lock_;
    std::multimap<size_t, off_t> freePlaces_ GUARDED_BY(lock_);
    off_t end_ GUARDED_BY(lock_) = 0;
};

int openUnlinked(const std::string& folder)
{
    const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        return descriptor;
    // Not every file system has files without a name.
    std::string name = folder + "/.frames-XXXXXX";
    const int named = mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0)
        unlink(name.c_str());
    return named;
}

std::shared_ptr<SpillFile> SpillFile::fileInFolder(const std::string& folder)
{
    static Lock lock;
    // Never destroyed: frames may still be made while the process ends.
    static auto& files = *new std::map<std::string, std::weak_ptr<SpillFile>>;
    LockGuard guard(lock);
    auto& known = files[folder];
    if (auto file = known.lock())
        return file;
    std::erase_if(files, [&](const auto& entry) { return entry.first != folder && entry.second.expired(); });
    const int descriptor = openUnlinked(folder);
    if (descriptor < 0)
        return nullptr;
    auto file = std::make_shared<SpillFile>(descriptor);
    files[folder] = file;
    return file;
}

off_t SpillFile::takePlace(size_t length)
{
    LockGuard guard(lock_);
    if (const auto place = freePlaces_.find(length); place != freePlaces_.end()) {
        const off_t offset = place->second;
        freePlaces_.erase(place);
        return offset;
    }
    const off_t offset = end_;
    end_ += static_cast<off_t>(length);
    return offset;
}

std::optional<off_t> SpillFile::write(const uint8_t* bytes, size_t length)
{
    const off_t offset = takePlace(length);
    size_t written = 0;
    while (written < length) {
        const ssize_t count =
            pwrite(descriptor_, bytes + written, length - written, offset + static_cast<off_t>(written));
        if (count > 0) {
            written += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            release(offset, length);
            return std::nullopt;
        }
    }
    return offset;
}

bool SpillFile::read(off_t offset, uint8_t* bytes, size_t length) const
{
    size_t done = 0;
    while (done < length) {
        const ssize_t count = pread(descriptor_, bytes + done, length - done, offset + static_cast<off_t>(done));
        if (count > 0)
            done += static_cast<size_t>(count);
        else if (count == 0 || errno != EINTR)
            return false;
    }
    return true;
}

void SpillFile::release(off_t offset, size_t length)
{
    // Where holes are not known the place is only used again.
    (void)fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, static_cast<off_t>(length));
    LockGuard guard(lock_);
    freePlaces_.emplace(length, offset);
}

} // namespace

/// Where the pixels are: in memory, or else at a place of the file.
struct CVPixelBuffer::Storage {
    Storage(size_t length, std::optional<std::string> folder) : bytes(length), spillFolder(std::move(folder)) {}
    ~Storage()
    {
        if (memory)
            PixelMemory::give(memory, bytes);
        else if (file)
            file->release(offset, bytes);
    }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    const size_t bytes;
    const std::optional<std::string> spillFolder;
    uint8_t* memory = nullptr;
    std::shared_ptr<SpillFile> file;
    off_t offset = 0;
};

CVPixelBuffer::CVPixelBuffer(size_t width, size_t height, size_t bytesPerRow, std::unique_ptr<Storage> storage)
    : width_(width), height_(height), bytesPerRow_(bytesPerRow), storage_(std::move(storage))
{}

CVPixelBuffer::~CVPixelBuffer() = default;

int32_t CVPixelBuffer::lockBaseAddress()
{
    if (!storage_->memory) {
        uint8_t* const memory = PixelMemory::take(storage_->bytes);
        if (!memory)
            return kCVReturnAllocationFailed;
        if (!storage_->file->read(storage_->offset, memory, storage_->bytes)) {
            PixelMemory::give(memory, storage_->bytes);
            return kCVReturnError;
        }
        storage_->file->release(storage_->offset, storage_->bytes);
        storage_->file.reset();
        storage_->memory = memory;
    }
    base_ = storage_->memory;
    ++locks_;
    return kCVReturnSuccess;
}

void CVPixelBuffer::unlockBaseAddress()
{
    if (locks_ == 0 || --locks_ > 0)
        return;
    base_ = nullptr;
    // The frame finished last is the one needed last, so the one to write out is always the one at hand.
    if (storage_->spillFolder && bytesInMemory > memoryBudget)
        spill();
}

void CVPixelBuffer::spill()
{
    auto file = SpillFile::fileInFolder(*storage_->spillFolder);
    if (!file)
        return;
    const auto offset = file->write(storage_->memory, storage_->bytes);
    if (!offset)
        return;
    PixelMemory::give(std::exchange(storage_->memory, nullptr), storage_->bytes);
    storage_->file = std::move(file);
    storage_->offset = *offset;
}

int32_t CVPixelBufferCreate(size_t width, size_t height, uint32_t pixelFormatType, const NSURL* spillFolder,
                            std::shared_ptr<CVPixelBuffer>* buffer)
{
    if (!buffer)
        return kCVReturnInvalidArgument;
    if (pixelFormatType != kCVPixelFormatType_32ARGB)
        return kCVReturnInvalidPixelFormat;
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        return kCVReturnInvalidSize;

    const size_t bytesPerRow = (width * 4 + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    auto storage = std::make_unique<CVPixelBuffer::Storage>(
        bytesPerRow * height, spillFolder ? std::optional(spillFolder->path()) : std::nullopt);
    storage->memory = PixelMemory::take(storage->bytes);
    if (!storage->memory)
        return kCVReturnAllocationFailed;
    buffer->reset(new CVPixelBuffer(width, height, bytesPerRow, std::move(storage)));
    return kCVReturnSuccess;
}

size_t pixelBufferMemoryBudget()
{
    return memoryBudget;
}

void setPixelBufferMemoryBudget(size_t bytes)
{
    memoryBudget = bytes;
}

size_t pixelBufferBytesInMemory()
{
    return bytesInMemory;
}

} // namespace platform
