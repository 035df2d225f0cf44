#include "platform/media/SoundExport.h"

#include "platform/aac/AACEncoder.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Lock.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "platform/sound/M4AFile.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace platform {
namespace {

constexpr int64_t kPacket = kAACPacketLength;
/// Packets that are encoded in one go: fewer waste time on starting, more waste memory.
constexpr int64_t kSmallestPart = 512;
constexpr int64_t kLargestPart = 2048;
/// Packets before the last one that can be copied, in which the change to encoded ones may lie.
constexpr int64_t kCopyJointRange = 32;
/// It is not worth a change to copy fewer packets.
constexpr int64_t kLeastCopied = 96;

/// Samples of a time at a rate, to the nearest.
int64_t inSamples(CMTime time, int sampleRateHz)
{
    const CMTime converted = CMTimeConvertScale(time, sampleRateHz, CMTimeRoundingMethod::RoundHalfAwayFromZero);
    // Times beyond 64 bits come back infinite.
    if (!converted.isNumeric())
        return converted.flags & CMTime::PositiveInfinity ? INT64_MAX / 4 : 0;
    return std::clamp(converted.value, INT64_MIN / 4, INT64_MAX / 4);
}

double inExactSamples(CMTime time, int sampleRateHz)
{
    return static_cast<double>(time.value) * sampleRateHz / time.timescale;
}

/// Whether a time lies so close to another as rounding to its scale, or to a sample, may have moved it.
bool isWithinTick(CMTime time, CMTime other, int sampleRateHz)
{
    if (!time.isNumeric() || !other.isNumeric())
        return false;
    const double tick = 1.0 / std::min(time.timescale, sampleRateHz);
    // What is exactly a tick away does not come out so in floating point.
    return std::abs(CMTimeGetSeconds(CMTimeSubtract(time, other))) < tick * 1.001;
}

bool failNothingToExport(NSError* error, const std::string& why)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset, why);
}

/// A part of a file and where it goes, as times.
struct Placed {
    SoundFacts facts;
    CMTimeRange source;
    CMTime target;
    int32_t trackID = 0;
};

/// Rate and channels for all pieces: those of the first, which can then be copied, unless its quality is too low for
/// the others.
void chooseFormat(const std::vector<Placed>& placed, SoundPlan& plan)
{
    int highest = 0;
    for (const Placed& piece : placed) {
        highest = std::max(highest, nearestAACRate(piece.facts.sampleRateHz));
        plan.channels = std::max(plan.channels, piece.facts.channels);
    }
    const int first = nearestAACRate(placed.front().facts.sampleRateHz);
    plan.sampleRateHz = first >= 44100 ? first : highest;
}

std::vector<SoundRamp> rampsOf(int32_t trackID, const AVMutableAudioMix* audioMix, int sampleRateHz)
{
    std::vector<SoundRamp> ramps;
    if (!audioMix)
        return ramps;
    for (const AVMutableAudioMixInputParameters& parameters : audioMix->inputParameters()) {
        if (parameters.trackID() != trackID)
            continue;
        for (const auto& ramp : parameters.volumeRamps()) {
            const CMTime end = CMTimeRangeGetEnd(ramp.timeRange);
            if (ramp.timeRange.start.isNumeric() && end.isNumeric())
                ramps.push_back({inExactSamples(ramp.timeRange.start, sampleRateHz), inExactSamples(end, sampleRateHz),
                                 ramp.startVolume, ramp.endVolume});
        }
    }
    return ramps;
}

std::optional<std::vector<Placed>> placeSound(const AVAsset& asset, NSError* error)
{
    std::vector<Placed> placed;
    if (const auto* composition = dynamic_cast<const AVMutableComposition*>(&asset)) {
        for (const auto& track : composition->compositionTracks()) {
            if (track->mediaType() != kAVMediaTypeAudio)
                continue;
            for (const AVCompositionTrackSegment& segment : track->segments()) {
                if (!segment.source || !segment.source->assetURL)
                    continue;
                auto facts = readSoundFacts(*segment.source->assetURL, segment.source->streamIndex, error);
                if (!facts)
                    return std::nullopt;
                placed.push_back({*std::move(facts), segment.sourceRange, segment.targetRange.start, track->trackID()});
            }
        }
        if (placed.empty()) {
            failNothingToExport(error, "The composition holds no sound");
            return std::nullopt;
        }
        std::stable_sort(placed.begin(), placed.end(),
                         [](const Placed& a, const Placed& b) { return CMTimeCompare(a.target, b.target) < 0; });
        return placed;
    }
    const auto* file = dynamic_cast<const AVURLAsset*>(&asset);
    if (!file) {
        failNothingToExport(error, "The asset is of a kind that cannot be read");
        return std::nullopt;
    }
    auto facts = readSoundFacts(file->URL(), std::nullopt, error);
    if (!facts)
        return std::nullopt;
    const CMTime length = CMTimeMake(facts->timeline.length(), facts->sampleRateHz);
    placed.push_back({*std::move(facts), {kCMTimeZero, length}, kCMTimeZero, 1});
    return placed;
}

float volumeAt(const std::vector<SoundRamp>& ramps, int64_t position)
{
    float volume = 1;
    const auto time = static_cast<double>(position);
    for (const SoundRamp& ramp : ramps) {
        if (time < ramp.start)
            break;
        if (time < ramp.end) {
            const double part = (time - ramp.start) / (ramp.end - ramp.start);
            return static_cast<float>(ramp.startVolume + (ramp.endVolume - ramp.startVolume) * part);
        }
        volume = ramp.endVolume;
    }
    return volume;
}

/// Reads a plan's sound, pieces added together, volumes applied.
class SoundMixer final {
public:
    explicit SoundMixer(const SoundPlan& plan) : plan_(plan)
    {
        for (const SoundPiece& piece : plan.pieces)
            voices_.push_back({&piece, nullptr, piece.targetStart, piece.targetEnd()});
        // An encoder that hears what lies before and after a cut hears no edge there.
        voices_.front().start = INT64_MIN;
        if (voices_.front().piece->targetStart > plan.rangeStart)
            voices_.front().start = voices_.front().piece->targetStart;
        if (voices_.back().end >= plan.rangeEnd)
            voices_.back().end = INT64_MAX;
    }

    /// Where sound ends for good, earlier than planned, because the last file holds less than it says.
    std::optional<int64_t> end() const { return end_; }

    /// The sound from `position` on; silence where there is none. Positions go forward.
    bool read(int64_t position, std::span<float> samples, NSError* error)
    {
        const auto channels = static_cast<size_t>(plan_.channels);
        const auto count = static_cast<int64_t>(samples.size() / channels);
        std::fill(samples.begin(), samples.end(), 0.0F);
        for (Voice& voice : voices_) {
            const int64_t from = std::max(position, voice.start);
            const int64_t to = std::min(position + count, voice.end);
            if (from >= to) {
                if (position >= voice.end)
                    voice.reader.reset();
                continue;
            }
            if (!voice.reader)
                voice.reader = SoundReader::open(voice.piece->facts, plan_.sampleRateHz, plan_.channels, error);
            if (!voice.reader)
                return false;
            // The first sound of a file has nothing before it.
            const int64_t source = from - voice.piece->targetStart + voice.piece->sourceStart;
            const int64_t missing = std::clamp<int64_t>(-source, 0, to - from);
            if (missing == to - from)
                continue;
            block_.resize(static_cast<size_t>(to - from - missing) * channels);
            const size_t got = voice.reader->read(source + missing, block_);
            const int64_t start = from + missing;
            for (size_t frame = 0; frame < got; ++frame) {
                const float volume = volumeAt(voice.piece->ramps, start + static_cast<int64_t>(frame));
                const size_t target = (static_cast<size_t>(start - position) + frame) * channels;
                for (size_t channel = 0; channel < channels; ++channel)
                    samples[target + channel] += block_[frame * channels + channel] * volume;
            }
            const int64_t heard = start + static_cast<int64_t>(got);
            if (heard < std::min(to, voice.piece->targetEnd()) && &voice == &voices_.back() && !end_)
                end_ = heard;
        }
        return true;
    }

private:
    struct Voice {
        const SoundPiece* piece = nullptr;
        std::unique_ptr<SoundReader> reader;
        int64_t start = 0;
        int64_t end = 0;
    };

    const SoundPlan& plan_;
    std::vector<Voice> voices_;
    std::vector<float> block_;
    std::optional<int64_t> end_;
};

/// Where packets lie: packet i decodes to the 1024 samples of the grid from i * 1024 on; the first sample of the range
/// lies at `start`.
struct PacketGrid {
    int64_t start = 0;
    /// Samples of the range.
    int64_t length = 0;

    int64_t packets() const { return (start + length + kPacket - 1) / kPacket; }
};

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
    const SoundFacts& facts = first.facts;
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

/// How many of so many packets are encoded in one go. By their number alone, so that the result is the same on every
/// machine; the parts are as long as each other and their number suits the usual numbers of processors.
int64_t partSize(int64_t packets)
{
    constexpr int64_t kProcessors = 4;
    int64_t parts = (packets + kLargestPart - 1) / kLargestPart;
    parts = (parts + kProcessors - 1) / kProcessors * kProcessors;
    parts = std::clamp<int64_t>(packets / kSmallestPart, 1, parts);
    return (packets + parts - 1) / parts;
}

/// A part of the sound while it is encoded.
struct Part {
    int64_t firstPacket = 0;
    std::vector<float> samples;
    /// The window of another encoder's packet before the first.
    std::optional<AACWindow> before;

    /// @name Once it is finished, and then not changed
    /// @{
    int64_t count() const NO_THREAD_SAFETY_ANALYSIS { return static_cast<int64_t>(packets->count()); }
    std::span<const uint8_t> packet(int64_t index) const NO_THREAD_SAFETY_ANALYSIS
    {
        return packets->packet(static_cast<size_t>(index));
    }
    /// @}

    Lock lock;
    Condition finished;
    bool isFinished GUARDED_BY(lock) = false;
    std::optional<PacketRun> packets GUARDED_BY(lock);
    NSError error GUARDED_BY(lock);
};

/// Encodes a plan's sound in parts on all processors and hands on the packets in order.
class PartEncoder final {
public:
    /// @param from    the first packet that is wanted
    /// @param before  the window of the packet before it, where that comes from another encoder
    PartEncoder(const SoundPlan& plan, PacketGrid grid, int64_t from, std::optional<AACWindow> before,
                const ExportControl& control)
        : plan_(plan), grid_(grid), control_(control), mixer_(plan), partPackets_(partSize(grid.packets() - from)),
          nextPacket_(from), before_(before), cancelled_(std::make_shared<std::atomic<bool>>(false))
    {}
    ~PartEncoder() { cancelled_->store(true); }
    PartEncoder(const PartEncoder&) = delete;
    PartEncoder& operator=(const PartEncoder&) = delete;

    /// The grid; shorter than it was asked for once the sound is known to end early.
    const PacketGrid& grid() const { return grid_; }

    /// The next part's packets, encoded; null at the end, when cancelled or on failure.
    std::shared_ptr<Part> next(NSError* error)
    {
        while (static_cast<int>(running_.size()) < partsAtOnce() && nextPacket_ < grid_.packets()) {
            if (!start(error))
                return nullptr;
        }
        if (running_.empty())
            return nullptr;
        const std::shared_ptr<Part> part = running_.front();
        running_.pop_front();
        if (!waitFor(*part, error))
            return nullptr;
        return part;
    }

private:
    static int partsAtOnce()
    {
        // One more than there are processors, so that none waits while the next part is decoded; a limit on memory.
        return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 8U)) + 1;
    }

    static DispatchQueue& queue()
    {
        // Never destroyed: sound may still be encoded while the process ends.
        static const auto& queue = *new std::shared_ptr<DispatchQueue>(
            DispatchQueue::create("SoundEncodingQueue", {.kind = DispatchQueue::Kind::Concurrent}));
        return *queue;
    }

    bool start(NSError* error)
    {
        auto part = std::make_shared<Part>();
        part->firstPacket = nextPacket_;
        part->before = std::exchange(before_, std::nullopt);
        nextPacket_ = std::min(nextPacket_ + partPackets_, grid_.packets());
        constexpr int64_t kLooksAround = kAACLookBehind + kAACLookAhead;
        const auto frame = static_cast<size_t>(plan_.channels * kPacket);
        part->samples.resize(static_cast<size_t>(nextPacket_ - part->firstPacket + kLooksAround) * frame);
        // What the part before this one has read already.
        std::copy(tail_.begin(), tail_.end(), part->samples.begin());
        const int64_t readFrom = (part->firstPacket - kAACLookBehind) * kPacket +
                                 static_cast<int64_t>(tail_.size() / static_cast<size_t>(plan_.channels)) -
                                 grid_.start + plan_.rangeStart;
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

    bool waitFor(Part& part, NSError* error)
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

    const SoundPlan& plan_;
    PacketGrid grid_;
    const ExportControl& control_;
    SoundMixer mixer_;
    const int64_t partPackets_;
    int64_t nextPacket_ = 0;
    std::optional<AACWindow> before_;
    std::deque<std::shared_ptr<Part>> running_;
    /// The last samples of the newest part, with which the next one begins.
    std::vector<float> tail_;
    const std::shared_ptr<std::atomic<bool>> cancelled_;
};

M4AFile::Format formatOf(const SoundPlan& plan)
{
    return {SoundCodec::AAC, plan.sampleRateHz, plan.channels, configurationOfAAC(plan.sampleRateHz, plan.channels),
            kAACPacketLength};
}

/// Copies packets [0, end) of a copy plan.
/// @return how many there were; nothing on failure or if cancelled
std::optional<int64_t> copyPackets(const SoundFacts& facts, const CopyPlan& copy, int64_t end, M4AFile& file,
                                   const ExportControl& control, NSError* error)
{
    const auto reader = SoundPacketReader::open(facts, error);
    if (!reader)
        return std::nullopt;
    const int64_t total = (copy.grid.start + copy.grid.length) / facts.packetLength + 1;
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
    const SoundFacts& facts = plan.pieces.front().facts;
    const auto file = M4AFile::create(
        url, {facts.codec, facts.sampleRateHz, facts.channels, facts.configuration, facts.packetLength}, error);
    if (!file)
        return false;
    const auto packets = copyPackets(facts, copy, copy.end, *file, control, error);
    if (!packets)
        return false;
    const int64_t length = std::min(copy.grid.length, *packets * facts.packetLength - copy.grid.start);
    if (length <= 0)
        return failNothingToExport(error, facts.url.path() + " holds none of the sound that was asked for");
    return file->finish(copy.grid.start, length, error);
}

/// Where encoded packets follow copied ones.
struct CopyJoint {
    int64_t firstEncoded = 0;
    AACWindow before;
};

/// Nothing if no window of the copied packets can be seen.
std::optional<CopyJoint> jointAfterCopy(const SoundFacts& facts, const CopyPlan& copy)
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
        return failNothingToExport(error, "None of the sound that was asked for could be decoded");
    return file.finish(encoder.grid().start, encoder.grid().length, error);
}

} // namespace

std::optional<SoundPlan> planSound(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange,
                                   const AVMutableAudioMix* audioMix, NSError* error)
{
    const auto placed = placeSound(asset, error);
    if (!placed)
        return std::nullopt;
    SoundPlan plan;
    chooseFormat(*placed, plan);
    const int rate = plan.sampleRateHz;
    CMTime endBefore = kCMTimeInvalid;
    for (const Placed& place : *placed) {
        // Places are given in the scale of each file and are cut down to it, which must leave neither gap nor overlap,
        // nor may rounding add up over many pieces.
        const CMTime target = isWithinTick(place.target, endBefore, rate) ? endBefore : place.target;
        endBefore = CMTimeAdd(target, place.source.duration);
        SoundPiece piece{place.facts, inSamples(place.source.start, rate), inSamples(target, rate), 0, {}};
        piece.length = inSamples(endBefore, rate) - piece.targetStart;
        piece.ramps = rampsOf(place.trackID, audioMix, rate);
        plan.rangeEnd = std::max(plan.rangeEnd, piece.targetEnd());
        plan.pieces.push_back(std::move(piece));
    }
    if (timeRange) {
        const bool isRange = CMTimeRangeIsValid(*timeRange) && timeRange->start.isNumeric() &&
                             !timeRange->duration.isIndefinite() && !CMTimeRangeIsEmpty(*timeRange);
        const int64_t end = isRange ? inSamples(CMTimeRangeGetEnd(*timeRange), rate) : 0;
        plan.rangeStart = isRange ? std::max<int64_t>(0, inSamples(timeRange->start, rate)) : 0;
        plan.rangeEnd = std::min(plan.rangeEnd, end);
    }
    if (plan.rangeStart >= plan.rangeEnd) {
        failNothingToExport(error, "The time range to export holds nothing of " + placed->front().facts.url.path());
        return std::nullopt;
    }
    // What lies outside of the range is not read.
    std::erase_if(plan.pieces, [&](const SoundPiece& piece) {
        return piece.targetEnd() <= plan.rangeStart || piece.targetStart >= plan.rangeEnd;
    });
    if (plan.pieces.empty()) {
        failNothingToExport(error, "The time range to export holds no sound");
        return std::nullopt;
    }
    return plan;
}

bool exportSoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control, NSError* error)
{
    const auto copy = planCopy(plan);
    const bool isAAC = copy && plan.pieces.front().facts.codec == SoundCodec::AAC;
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
        const SoundFacts& facts = plan.pieces.front().facts;
        const auto copied = copyPackets(facts, *copy, joint->firstEncoded, *file, control, error);
        if (!copied)
            return false;
        if (*copied < joint->firstEncoded)
            return fail(error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse,
                        facts.url.path() + " ends too early");
    }
    PartEncoder encoder(plan, grid, joint ? joint->firstEncoded : 0,
                        joint ? std::optional(joint->before) : std::nullopt, control);
    return writeParts(encoder, *file, control, error);
}

bool copySoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control, NSError* error)
{
    const auto copy = planCopy(plan);
    const SoundFacts& facts = plan.pieces.front().facts;
    const bool isWhole =
        copy && copy->end * facts.packetLength >= copy->grid.start + copy->grid.length && plan.pieces.size() == 1;
    if (!isWhole)
        return failNothingToExport(error, facts.url.path() + " holds sound that cannot be copied into an M4A file");
    return copyAll(plan, *copy, url, control, error);
}

} // namespace platform
