#include "client/reader/Answers.h"

#include "client/FileReason.h"
#include "client/reader/PhotoWork.h"
#include "client/reader/PictureSize.h"
#include "platform/decoders/CGImageSource.h"
#include "platform/files/NSURL.h"

namespace stillora {

using platform::CGImageSource;
using platform::NSError;

PhotoLook answerTo(const PhotoQuestion& question)
{
    PhotoLook look;
    const auto url = platform::NSURL::fileURLWithPath(question.file.native(), false);
    NSError error;
    const auto bad = [&] {
        look.kind = PhotoLook::Kind::Bad;
        look.reason = reasonWithoutPath(error.localizedDescription, url);
        return look;
    };
    PhotoWork work(question.file);
    const auto source = CGImageSource::createWithURL(url, &error);
    if (!source) {
        bad();
        look.kind = PhotoLook::Kind::NoPhoto;
        return look;
    }
    const auto properties = source->copyPropertiesAtIndex(&error);
    if (!properties)
        return bad();
    work.beginPixels(static_cast<double>(properties->pixelWidth) * static_cast<double>(properties->pixelHeight));
    if (!source->canDecode(&error))
        return bad();
    look.kind = PhotoLook::Kind::Good;
    look.size = uprightSizeOf(*properties);
    look.isCutOff = source->isCutOff();
    look.isProgressive = properties->isProgressive;
    if (const auto& taken = properties->origin.taken)
        look.taken = DateTaken{taken->clock, taken->offset};
    return look;
}

} // namespace stillora
