#include "platform/writer/AVAssetWriterInputPixelBufferAdaptor.h"

#include "platform/writer/AVAssetWriterSession.h"

#include <utility>

namespace platform {

AVAssetWriterInputPixelBufferAdaptor::AVAssetWriterInputPixelBufferAdaptor(std::shared_ptr<AVAssetWriterInput> input)
    : input_(std::move(input))
{}

bool AVAssetWriterInputPixelBufferAdaptor::appendPixelBuffer(std::shared_ptr<CVPixelBuffer> buffer,
                                                             CMTime presentationTime)
{
    const auto session = input_->session();
    return buffer && session && session->append(std::move(buffer), presentationTime);
}

void AVAssetWriterInputPixelBufferAdaptor::codeAhead(CVPixelBuffer& buffer, uint64_t index)
{
    if (const auto session = input_->session())
        session->codeAhead(buffer, index);
}

} // namespace platform
