#include "platform/sound/PartEncoder.h"

#include "platform/aac/AACParts.h"
#include "platform/dispatch/DispatchQueue.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace platform {
namespace {

constexpr int64_t kPacket = kAACPacketLength;
int partsAtOnce()
{
    // One more than there are processors, so that none waits while the next part is decoded; a limit on memory.
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 8U)) + 1;
}

DispatchQueue& queue()
{
    // Never destroyed: sound may still be encoded while the process ends.
    static const auto& queue = *new std::shared_ptr<DispatchQueue>(
        DispatchQueue::create("SoundEncodingQueue", {.kind = DispatchQueue::Kind::Concurrent}));
    return *queue;
}

} // namespace

PartEncoder::PartEncoder(const SoundPlan& plan, PacketGrid grid, int64_t from, std::optional<AACWindow> before,
                         const ExportControl& control)
    : plan_(plan), grid_(grid), control_(control), mixer_(plan), partPackets_(packetsInPart(grid.packets() - from)),
      nextPacket_(from), before_(before), cancelled_(std::make_shared<std::atomic<bool>>(false))
{}

std::shared_ptr<EncodedPart> PartEncoder::next(NSError* error)
{
    while (static_cast<int>(running_.size()) < partsAtOnce() && nextPacket_ < grid_.packets()) {
        if (!start(error))
            return nullptr;
    }
    if (running_.empty())
        return nullptr;
    auto part = std::move(running_.front());
    running_.pop_front();
    if (!waitFor(*part, error))
        return nullptr;
    return part;
}

bool PartEncoder::start(NSError* error)
{
    auto part = std::make_shared<EncodedPart>();
    part->firstPacket = nextPacket_;
    part->before = std::exchange(before_, std::nullopt);
    nextPacket_ = std::min(nextPacket_ + partPackets_, grid_.packets());
    constexpr int64_t kLooksAround = kAACLookBehind + kAACLookAhead;
    const auto frame = static_cast<size_t>(plan_.channels * kPacket);
    part->samples.resize(static_cast<size_t>(nextPacket_ - part->firstPacket + kLooksAround) * frame);
    // What the part before this one has read already.
    std::copy(tail_.begin(), tail_.end(), part->samples.begin());
    const int64_t readFrom = (part->firstPacket - kAACLookBehind) * kPacket +
                             static_cast<int64_t>(tail_.size() / static_cast<size_t>(plan_.channels)) - grid_.start +
                             plan_.rangeStart;
    if (!mixer_.read(readFrom, std::span(part->samples).subspan(tail_.size()), error))
        return false;
    tail_.assign(part->samples.end() - static_cast<ptrdiff_t>(kLooksAround * frame), part->samples.end());
    if (const auto end = mixer_.end())
        grid_.length = std::min(grid_.length, *end - plan_.rangeStart);

    running_.push_back(part);
    queue().async([part, cancelled = cancelled_, rate = plan_.sampleRateHz, width = plan_.channels] {
        NSError failure;
        auto packets = encodeAAC(
            part->samples, rate, width, part->before, [&] { return cancelled->load(); }, &failure);
        part->samples = {};
        const LockGuard guard(part->lock);
        part->packets = std::move(packets);
        part->error = std::move(failure);
        part->isFinished = true;
        part->finished.notify_all();
    });
    return true;
}

bool PartEncoder::waitFor(EncodedPart& part, NSError* error)
{
    const LockGuard guard(part.lock);
    while (!part.isFinished) {
        // The end of the part wakes this up; a cancel is looked for now and then.
        part.finished.wait_for(part.lock, std::chrono::milliseconds(50));
        if (control_.isCancelled())
            return false;
    }
    if (!part.packets && error && !part.error.domain.empty())
        *error = part.error;
    return part.packets.has_value() && !control_.isCancelled();
}

} // namespace platform
