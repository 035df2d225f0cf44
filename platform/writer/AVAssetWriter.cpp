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

bool AVAssetWriter::canAddInput(const AVAssetWriterInput& input) const
{
    return status() == AVAssetWriterStatus::Unknown && input.mediaType() == kAVMediaTypeVideo && !input.session() &&
           !input_.get();
}

void AVAssetWriter::addInput(std::shared_ptr<AVAssetWriterInput> input)
{
    if (!canAddInput(*input))
        return;
    input->session_.set(session_);
    input_.set(std::move(input));
}

bool AVAssetWriter::startWriting()
{
    const auto input = input_.get();
    return session_->start(input ? std::optional(input->outputSettings()) : std::nullopt,
                           input ? input->maximumSampleCount() : std::nullopt, encoderCount_.get(),
                           shouldOptimizeForNetworkUse(), metadata());
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
