#include "platform/decoders/DecodingCost.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/Lock.h"

#include <algorithm>
#include <unistd.h>

namespace platform {

namespace {

constexpr uint64_t kMemory = uint64_t{448} << 20;
constexpr uint64_t kWork = uint64_t{400} << 20;
/// A photo takes a byte or more for each 30 bytes of its pixels.
constexpr uint64_t kMemoryForByte = 64;
constexpr uint64_t kWorkForByte = 256;

struct Shares {
    Lock lock;
    Condition changed;
    uint64_t taken GUARDED_BY(lock) = 0;

    static Shares& shared()
    {
        // Never destroyed: pictures may still be decoded while the process ends.
        static auto& shares = *new Shares;
        return shares;
    }
};

/// Of all pictures that are decoded at once: a quarter of what the machine has.
uint64_t memoryOfAll()
{
    static const uint64_t bytes = std::max(kMemory, static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                                        static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 4);
    return bytes;
}

std::string megabytes(uint64_t bytes)
{
    return std::to_string(bytes / 1000000);
}

} // namespace

std::optional<std::string> faultOfCost(const DecodingCost& cost, uint64_t fileBytes)
{
    if (const uint64_t most = std::max(kMemory, fileBytes * kMemoryForByte); cost.memory > most)
        return localized("needs {} MB of memory to be decoded; a file of its length gets {} MB",
                         {megabytes(cost.memory), megabytes(most)});
    if (const uint64_t most = std::max(kWork, fileBytes * kWorkForByte); cost.work > most)
        return localized("takes as long to decode as {} MB of pixels; a file of its length gets {} MB",
                         {megabytes(cost.work), megabytes(most)});
    return std::nullopt;
}

DecodingShare::DecodingShare(uint64_t memory) : memory_(memory)
{
    if (memory_ == 0)
        return;
    auto& shares = Shares::shared();
    LockGuard guard(shares.lock);
    while (shares.taken > 0 && shares.taken + memory_ > memoryOfAll())
        shares.changed.wait(shares.lock);
    shares.taken += memory_;
}

DecodingShare::~DecodingShare()
{
    if (memory_ == 0)
        return;
    auto& shares = Shares::shared();
    {
        LockGuard guard(shares.lock);
        shares.taken -= memory_;
    }
    shares.changed.notify_all();
}

} // namespace platform
