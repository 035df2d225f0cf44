#include "client/command/terminal/PhotoSentence.h"

#include "client/text/LocalizedText.h"
#include "platform/files/NSURL.h"

#include <fmt/format.h>

namespace stillora {

namespace {

/// More photos are counted, not named.
constexpr size_t kMaxNamed = 3;

/// Few photos are named behind what is told of them.
std::string withNames(const std::string& sentence, const std::vector<size_t>& indexes,
                      const std::vector<PhotoFacts>& photos)
{
    if (indexes.size() > kMaxNamed)
        return sentence;
    std::vector<std::string> names;
    for (const size_t index : indexes)
        names.push_back(platform::lastPathComponent(photos[index].path.native()));
    return localized("{}: {}", sentence, fmt::join(names, ", "));
}

} // namespace

std::string smallPhotosSentence(Size frame, const std::vector<PhotoFacts>& photos)
{
    const std::vector<size_t> smaller = photosSmallerThanFrame(frame, photos);
    if (smaller.empty())
        return {};
    const std::string sentence =
        photos.size() == 1
            ? localized("1 of 1 photo is narrower or lower than the frame of {:.0f} x {:.0f} and stands in black",
                        frame.width, frame.height)
            : localizedCount(
                  smaller.size(),
                  "{} of {} photos is narrower or lower than the frame of {:.0f} x {:.0f} and stands in black",
                  "{} of {} photos are narrower or lower than the frame of {:.0f} x {:.0f} and stand in black",
                  photos.size(), frame.width, frame.height);
    return withNames(sentence, smaller, photos);
}

std::string undatedSentence(const SortedPhotos& sorted)
{
    const size_t count = sorted.undated.size();
    if (count == 0 || sorted.photos.size() == 1)
        return {};
    if (count == sorted.photos.size())
        return localized("no photo tells when it was taken; the photos are sorted by the times of their files");
    const std::string sentence = localizedCount(
        count, "{} of {} photos does not tell when it was taken and goes by the photo before in its folder",
        "{} of {} photos do not tell when they were taken and go by the photo before in their folder",
        sorted.photos.size());
    return withNames(sentence, sorted.undated, sorted.photos);
}

} // namespace stillora
