#include "video/FrameProduction.h"

#include "platform/pixels/CGImage.h"
#include "platform/system/NSWorkspace.h"
#include "util/MORImageCategory.h"
#include "video/FramePlacement.h"
#include "video/PhotoFrame.h"

#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

using platform::CGImagePtr;
using platform::CGSize;

namespace {

constexpr CGSize kIconSize = {53, 53};

/// What one rendering operation knows.
struct FrameJob {
    VideoStageContext& context;
    MORPhotoPtr photo;
    size_t index;
    size_t count;
    CGSize frame;
    bool reduceBorders;
};

platform::NSImagePtr makeIcon(const CGImagePtr& image, const std::optional<platform::NSURL>& url)
{
    if (auto icon = MORImageCategory::initWithCGImage(image, kIconSize))
        return icon;
    return platform::NSWorkspace::sharedWorkspace().iconForFile(url ? url->pathExtension() : "");
}

/// By the frame's place in the whole movie.
bool getsWatermark(const FrameJob& job)
{
    const MoviePart part = job.context.part().value_or(MoviePart{0, job.count});
    return job.context.drawsWatermark() && carriesWatermark(part.first + job.index, part.movieCount);
}

void render(const FrameJob& job)
{
    if (job.context.isCancelled())
        return;
    const auto url = job.photo->photoURL();
    auto frame = renderPhotoFrame({.photo = url,
                                   .photoSize = job.photo->size(),
                                   .frame = job.frame,
                                   .reduceBorders = job.reduceBorders,
                                   .carriesWatermark = getsWatermark(job)});
    if (!frame)
        return;
    auto icon = makeIcon(frame->picture, url);
    frame->picture.reset();
    if (job.context.isCancelled())
        return;
    if (const auto adaptor = job.context.pixelBufferAdaptor())
        adaptor->codeAhead(*frame->buffer, job.index);
    if (job.context.isCancelled())
        return;
    // Gone once the writer has ended.
    if (const auto frames = job.context.imageBuffers())
        frames->append({std::move(frame->buffer), std::move(icon), job.photo->fileSize(), job.index});
}

} // namespace

void fillBufferArray(VideoStageContext& context, const PhotoList& photos, CGSize maxVidSize, bool reduceBorders)
{
    context.setImageBuffers(std::make_shared<FrameList>());
    std::unordered_map<const MORPhoto*, size_t> firstPlaces;
    for (size_t i = 0; i < photos.size(); ++i)
        firstPlaces.try_emplace(photos[i].get(), i);
    const auto reused = context.reusedFrames();
    for (size_t i = 0; i < photos.size(); ++i) {
        if (context.isCancelled())
            return;
        if (reused && reused->contains(i))
            continue;
        const MORPhotoPtr& photo = photos[i];
        context.bufferCreationQ().addOperationWithBlock(
            [job = FrameJob{context, photo, firstPlaces.at(photo.get()), photos.size(), maxVidSize, reduceBorders}] {
                render(job);
            });
    }
}
