#include "platform/writer/AVAssetWriter.h"

#include "platform/files/NSFileManager.h"
#include "platform/media/AVURLAsset.h"
#include "platform/writer/AVAssetWriterSession.h"

#include <string>
#include <utility>

namespace platform {

std::shared_ptr<AVAssetWriter> AVAssetWriter::assetWriterWithURL(const NSURL& url, std::string_view fileType,
                                                                 NSError* error)
{
    if (fileType != kAVFileTypeQuickTimeMovie) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
             url.lastPathComponent() + " cannot be written as \"" + std::string(fileType) + "\"");
        return nullptr;
    }
    if (NSFileManager::defaultManager().fileExistsAtPath(url.path())) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileAlreadyExists, url.lastPathComponent() + " is there already");
        return nullptr;
    }
    return std::shared_ptr<AVAssetWriter>(new AVAssetWriter(url));
}

AVAssetWriter::AVAssetWriter(NSURL url) : session_(std::make_shared<AVAssetWriterSession>(std::move(url))) {}

AVAssetWriter::~AVAssetWriter()
{
    session_->cancel();
}

const NSURL& AVAssetWriter::outputURL() const
{
    return session_->url();
}

bool AVAssetWriter::shouldOptimizeForNetworkUse() const
{
    LockGuard guard(lock_);
    return shouldOptimizeForNetworkUse_;
}

void AVAssetWriter::setShouldOptimizeForNetworkUse(bool value)
{
    LockGuard guard(lock_);
    shouldOptimizeForNetworkUse_ = value;
}

std::optional<NSURL> AVAssetWriter::directoryForTemporaryFiles() const
{
    LockGuard guard(lock_);
    return directoryForTemporaryFiles_;
}

void AVAssetWriter::setDirectoryForTemporaryFiles(std::optional<NSURL> url)
{
    LockGuard guard(lock_);
    directoryForTemporaryFiles_ = std::move(url);
}

AVMetadataItemList AVAssetWriter::metadata() const
{
    LockGuard guard(lock_);
    return metadata_;
}

void AVAssetWriter::setMetadata(AVMetadataItemList metadata)
{
    LockGuard guard(lock_);
    metadata_ = std::move(metadata);
}

void AVAssetWriter::setEncoderCount(size_t count)
{
    LockGuard guard(lock_);
    encoderCount_ = count;
}

bool AVAssetWriter::canAddInput(const AVAssetWriterInput& input) const
{
    if (status() != AVAssetWriterStatus::Unknown || input.mediaType() != kAVMediaTypeVideo || input.session())
        return false;
    LockGuard guard(lock_);
    return !input_;
}

void AVAssetWriter::addInput(std::shared_ptr<AVAssetWriterInput> input)
{
    if (!canAddInput(*input))
        return;
    {
        LockGuard guard(input->lock_);
        input->session_ = session_;
    }
    LockGuard guard(lock_);
    input_ = std::move(input);
}

bool AVAssetWriter::startWriting()
{
    std::optional<AVVideoSettings> settings;
    std::optional<size_t> maximumSampleCount;
    size_t encoderCount = 0;
    bool indexFirst = false;
    {
        LockGuard guard(lock_);
        encoderCount = encoderCount_;
        indexFirst = shouldOptimizeForNetworkUse_;
        if (input_) {
            settings = input_->outputSettings();
            maximumSampleCount = input_->maximumSampleCount();
        }
    }
    return session_->start(settings, maximumSampleCount, encoderCount, indexFirst, metadata());
}

void AVAssetWriter::startSessionAtSourceTime(CMTime startTime)
{
    session_->startAtSourceTime(startTime);
}

void AVAssetWriter::finishWritingWithCompletionHandler(std::function<void()> handler)
{
    session_->finish(std::move(handler));
}

void AVAssetWriter::cancelWriting()
{
    session_->cancel();
}

AVAssetWriterStatus AVAssetWriter::status() const
{
    return session_->status();
}

std::optional<NSError> AVAssetWriter::error() const
{
    return session_->error();
}

AVAssetWriterStatus AVAssetWriter::waitWhileWriting(double seconds) const
{
    return session_->waitWhileWriting(seconds);
}

} // namespace platform
