#include "platform/sound/SoundExport.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/sound/M4AFile.h"
#include "platform/sound/PartEncoder.h"
#include "platform/sound/SoundPacketReader.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

namespace platform {
namespace {

constexpr int64_t kPacket = kAACPacketLength;
/// Packets before the last one that can be copied, in which the change to encoded ones may lie.
constexpr int64_t kCopyJointRange = 32;
/// It is not worth a change to copy fewer packets.
constexpr int64_t kLeastCopied = 96;

bool failNothingToExport(NSError* error, const std::string& why)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset, why);
}

/// Packets of the first file that can be taken over.
struct CopyPlan {
    /// Index in the file of the packet that becomes the first.
    int64_t firstPacket = 0;
    PacketGrid grid;
    /// Packets from this one on must be encoded; all can be copied if it is the grid's number of packets.
    int64_t end = 0;
};

/// How far the first piece plays unchanged and alone, from the start of the range on.
int64_t unchangedLength(const SoundPlan& plan)
{
    const SoundPiece& first = plan.pieces.front();
    int64_t end = std::min(first.targetEnd(), plan.rangeEnd);
    for (const SoundRamp& ramp : first.ramps) {
        if (ramp.startVolume != 1 || ramp.endVolume != 1)
            end = std::min(end, static_cast<int64_t>(std::ceil(std::max(ramp.start, 0.0))));
    }
    for (size_t i = 1; i < plan.pieces.size(); ++i)
        end = std::min(end, plan.pieces[i].targetStart);
    return end - plan.rangeStart;
}

std::optional<CopyPlan> planCopy(const SoundPlan& plan)
{
    const SoundPiece& first = plan.pieces.front();
    const SoundFacts& facts = *first.facts;
    if (facts.codec == SoundCodec::Other || facts.sampleRateHz != plan.sampleRateHz ||
        facts.channels != plan.channels || first.targetStart > plan.rangeStart)
        return std::nullopt;
    const int64_t unchanged = unchangedLength(plan);
    if (unchanged <= 0)
        return std::nullopt;
    // One packet before the cut, whose window reaches into the first packet that plays.
    const int64_t leadIn = facts.codec == SoundCodec::AAC ? 1 : 0;
    const int64_t mediaStart =
        *facts.timeline.segments.front().mediaStart + first.sourceStart + plan.rangeStart - first.targetStart;
    CopyPlan copy;
    copy.firstPacket = std::max<int64_t>(0, mediaStart / facts.packetLength - leadIn);
    copy.grid.start = mediaStart - copy.firstPacket * facts.packetLength;
    copy.grid.length = plan.rangeEnd - plan.rangeStart;
    if (unchanged >= copy.grid.length)
        copy.end = (copy.grid.start + copy.grid.length + facts.packetLength - 1) / facts.packetLength;
    else
        // Both packets whose windows overlap at the change must have heard the same sound there.
        copy.end = (copy.grid.start + unchanged) / facts.packetLength - 1;
    return copy;
}

M4AFile::Format formatOf(const SoundPlan& plan)
{
    return {SoundCodec::AAC, plan.sampleRateHz, plan.channels, configurationOfAAC(plan.sampleRateHz, plan.channels),
            kAACPacketLength};
}

/// Copies packets [0, end) of a copy plan.
/// @return how many there were; nothing on failure or if cancelled
std::optional<int64_t> copyPackets(const SoundFactsPtr& facts, const CopyPlan& copy, int64_t end, M4AFile& file,
                                   const ExportControl& control, NSError* error)
{
    const auto reader = SoundPacketReader::open(facts, error);
    if (!reader)
        return std::nullopt;
    const int64_t total = (copy.grid.start + copy.grid.length) / facts->packetLength + 1;
    for (int64_t packet = 0; packet < end; ++packet) {
        if (control.isCancelled())
            return std::nullopt;
        const auto bytes = reader->packet(copy.firstPacket + packet);
        if (bytes.empty())
            return packet;
        if (!file.append(bytes, error))
            return std::nullopt;
        control.setProgress(static_cast<double>(packet) / static_cast<double>(total));
    }
    return end;
}

/// Copies a whole plan, which ends early if the file does.
bool copyAll(const SoundPlan& plan, const CopyPlan& copy, const NSURL& url, const ExportControl& control,
             NSError* error)
{
    const SoundFacts& facts = *plan.pieces.front().facts;
    const auto file = M4AFile::create(
        url, {facts.codec, facts.sampleRateHz, facts.channels, facts.configuration, facts.packetLength}, error);
    if (!file)
        return false;
    const auto packets = copyPackets(plan.pieces.front().facts, copy, copy.end, *file, control, error);
    if (!packets)
        return false;
    const int64_t length = std::min(copy.grid.length, *packets * facts.packetLength - copy.grid.start);
    if (length <= 0)
        return failNothingToExport(error,
                                   localized("{} holds none of the sound that was asked for", {facts.url.path()}));
    return file->finish(copy.grid.start, length, error);
}

/// Where encoded packets follow copied ones.
struct CopyJoint {
    int64_t firstEncoded = 0;
    AACWindow before;
};

/// Nothing if no window of the copied packets can be seen.
std::optional<CopyJoint> jointAfterCopy(const SoundFactsPtr& facts, const CopyPlan& copy)
{
    const auto reader = SoundPacketReader::open(facts);
    if (!reader)
        return std::nullopt;
    std::optional<CopyJoint> last;
    for (int64_t packet = copy.end - kCopyJointRange; packet < copy.end; ++packet) {
        const auto window = windowOfAAC(reader->packet(copy.firstPacket + packet));
        // What is encoded can follow any window, but best a long one.
        if (window && (!last || last->before.fallsShortly || !window->fallsShortly))
            last = CopyJoint{packet + 1, *window};
    }
    return last;
}

/// Writes what the encoder gives.
bool writeParts(PartEncoder& encoder, M4AFile& file, const ExportControl& control, NSError* error)
{
    NSError failure;
    while (const auto part = encoder.next(&failure)) {
        const int64_t total = encoder.grid().packets();
        for (int64_t i = 0; i < part->count() && part->firstPacket + i < total; ++i) {
            if (!file.append(part->packet(i), error))
                return false;
        }
        control.setProgress(static_cast<double>(part->firstPacket + part->count()) /
                            static_cast<double>(std::max<int64_t>(total, 1)));
    }
    if (control.isCancelled() || !failure.domain.empty()) {
        if (error && !failure.domain.empty())
            *error = failure;
        return false;
    }
    if (encoder.grid().length <= 0)
        return failNothingToExport(error, localized("None of the sound that was asked for could be decoded"));
    return file.finish(encoder.grid().start, encoder.grid().length, error);
}

} // namespace

bool exportSoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control, NSError* error)
{
    const auto copy = planCopy(plan);
    const bool isAAC = copy && plan.pieces.front().facts->codec == SoundCodec::AAC;
    if (isAAC && copy->end >= copy->grid.packets())
        return copyAll(plan, *copy, url, control, error);

    PacketGrid grid{kPacket, plan.rangeEnd - plan.rangeStart};
    std::optional<CopyJoint> joint;
    if (isAAC && copy->end >= kLeastCopied)
        joint = jointAfterCopy(plan.pieces.front().facts, *copy);
    const auto file = M4AFile::create(url, formatOf(plan), error);
    if (!file)
        return false;
    if (joint) {
        grid = copy->grid;
        const SoundFacts& facts = *plan.pieces.front().facts;
        const auto copied = copyPackets(plan.pieces.front().facts, *copy, joint->firstEncoded, *file, control, error);
        if (!copied)
            return false;
        if (*copied < joint->firstEncoded)
            return fail(error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse,
                        localized("{} ends too early", {facts.url.path()}));
    }
    PartEncoder encoder(plan, grid, joint ? joint->firstEncoded : 0,
                        joint ? std::optional(joint->before) : std::nullopt, control);
    return writeParts(encoder, *file, control, error);
}

bool copySoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control, NSError* error)
{
    const auto copy = planCopy(plan);
    const SoundFacts& facts = *plan.pieces.front().facts;
    const bool isWhole =
        copy && copy->end * facts.packetLength >= copy->grid.start + copy->grid.length && plan.pieces.size() == 1;
    if (!isWhole)
        return failNothingToExport(
            error, localized("{} holds sound that cannot be copied into an M4A file", {facts.url.path()}));
    return copyAll(plan, *copy, url, control, error);
}

} // namespace platform
