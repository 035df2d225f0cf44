#include "video/VideoStageContext.h"

#include "video/FrameProduction.h"
#include "video/VideoSize.h"

platform::CGSize VideoStageContext::videoSizeForQuality(int64_t quality, const PhotoList& photos,
                                                        uint64_t* totalFileSize, PhotoList* failedPhotos)
{
    return VideoSize::videoSizeForQuality(*this, quality, photos, totalFileSize, failedPhotos);
}

void VideoStageContext::_fillBufferArrayUsingPhotos(const PhotoList& photos, platform::CGSize maxVidSize,
                                                    bool reduceBorders)
{
    fillBufferArray(*this, photos, maxVidSize, reduceBorders);
}
