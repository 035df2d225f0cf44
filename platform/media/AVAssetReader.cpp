#include "platform/media/AVAssetReader.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/MediaInput.h"
#include "platform/media/AVAssetReaderSession.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/SoundPlanning.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr AVAudioSettings kReadableSettings{kAudioFormatLinearPCM, 32, false, 1};

} // namespace

std::unique_ptr<AVAssetReader> AVAssetReader::initWithAsset(const AVAssetPtr& asset, NSError* error)
{
    const auto* file = dynamic_cast<const AVURLAsset*>(asset.get());
    if (!file) {
        fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset,
             localized("The asset is of a kind that cannot be read"));
        return nullptr;
    }
    // What the asset knows of the file may be old.
    const auto tracks = asset->tracksWithMediaType(kAVMediaTypeAudio);
    const bool isCurrent =
        std::ranges::any_of(tracks, [](const AVAssetTrack& track) { return currentSoundFacts(track) != nullptr; });
    if (!isCurrent && !openMediaFile(file->URL(), true, error))
        return nullptr;
    return std::unique_ptr<AVAssetReader>(new AVAssetReader(asset));
}

AVAssetReader::AVAssetReader(AVAssetPtr asset)
    : asset_(std::move(asset)), session_(std::make_shared<AVAssetReaderSession>())
{}

AVAssetReader::~AVAssetReader()
{
    cancelReading();
}

void AVAssetReader::setTimeRange(CMTimeRange range)
{
    timeRange_ = range;
}

bool AVAssetReader::canAddOutput(const AVAssetReaderTrackOutputPtr& output) const
{
    if (!output || output->session_ || output->outputSettings() != kReadableSettings ||
        status() != AVAssetReaderStatus::Unknown)
        return false;
    const std::vector<AVAssetTrack> tracks = asset_->tracksWithMediaType(kAVMediaTypeAudio);
    return std::any_of(tracks.begin(), tracks.end(), [&](const AVAssetTrack& track) {
        return track.trackID == output->track().trackID && track.streamIndex == output->track().streamIndex;
    });
}

void AVAssetReader::addOutput(const AVAssetReaderTrackOutputPtr& output)
{
    if (!canAddOutput(output))
        return;
    output->session_ = session_;
    outputs_.push_back(output);
}

bool AVAssetReader::startReading()
{
    if (!session_->start(outputs_.size()))
        return false;
    for (const AVAssetReaderTrackOutputPtr& output : outputs_) {
        NSError failure;
        if (!output->start(timeRange_, &failure)) {
            session_->fail(std::move(failure));
            return false;
        }
    }
    return true;
}

void AVAssetReader::cancelReading()
{
    session_->cancel();
}

AVAssetReaderStatus AVAssetReader::status() const
{
    return session_->status();
}

std::optional<NSError> AVAssetReader::error() const
{
    return session_->error();
}

} // namespace platform
