#include "client/reader/Answers.h"

#include "client/reader/PhotoWork.h"
#include "client/reader/PictureSize.h"
#include "client/text/FileReason.h"
#include "platform/bytes/ByteSource.h"
#include "platform/decoders/CGImageSource.h"
#include "platform/files/NSURL.h"
#include "platform/system/SHA256.h"

#include <algorithm>
#include <array>
#include <span>

namespace stillora {

using platform::CGImageSource;
using platform::NSError;

namespace {

/// Of the bytes at both ends. What tells of a change without another length is there: marks of orientation and date at
/// the front, the last of the pixels at the back.
std::string fingerprintOf(const platform::FileBytes& file)
{
    constexpr int64_t kEndBytes = 16 << 10;
    std::array<uint8_t, kEndBytes> piece;
    const int64_t length = std::min(file.size(), kEndBytes);
    const auto bytes = std::span(piece).first(static_cast<size_t>(length));
    platform::SHA256 hash;
    for (const int64_t start : {int64_t{0}, file.size() - length}) {
        if (length == 0 || !file.read(start, bytes))
            return {};
        hash.add(std::as_bytes(bytes));
    }
    return hash.digest();
}

} // namespace

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
    look.fingerprint = fingerprintOf(platform::FileBytes(question.file.native()));
    if (const auto& taken = properties->origin.taken)
        look.taken = DateTaken{taken->clock, taken->offset};
    return look;
}

} // namespace stillora
