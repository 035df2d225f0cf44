#include "client/command/PhotoSentence.h"

#include "platform/files/NSURL.h"

#include <fmt/format.h>

namespace stillora {

namespace {

/// More photos are counted, not named.
constexpr size_t kMaxNamed = 3;

/// ": a.jpg, b.jpg" of few photos; nothing of many.
std::string namesOf(const std::vector<size_t>& indexes, const std::vector<PhotoFacts>& photos)
{
    if (indexes.size() > kMaxNamed)
        return {};
    std::vector<std::string> names;
    for (const size_t index : indexes)
        names.push_back(platform::lastPathComponent(photos[index].path.native()));
    return fmt::format(": {}", fmt::join(names, ", "));
}

} // namespace

std::string smallPhotosSentence(Size frame, const std::vector<PhotoFacts>& photos)
{
    const std::vector<size_t> smaller = photosSmallerThanFrame(frame, photos);
    if (smaller.empty())
        return {};
    const bool isOne = smaller.size() == 1;
    return fmt::format("{} of {} {} narrower or lower than the frame of {:.0f} x {:.0f} and {} in black{}",
                       smaller.size(), photos.size() == 1 ? "1 photo" : fmt::format("{} photos", photos.size()),
                       isOne ? "is" : "are", frame.width, frame.height, isOne ? "stands" : "stand",
                       namesOf(smaller, photos));
}

std::string undatedSentence(const SortedPhotos& sorted)
{
    const size_t count = sorted.undated.size();
    if (count == 0 || sorted.photos.size() == 1)
        return {};
    if (count == sorted.photos.size())
        return "no photo tells when it was taken; the photos are sorted by the times of their files";
    return fmt::format("{} of {} photos {} not tell when {} taken and {} by the photo before in {} folder{}", count,
                       sorted.photos.size(), count == 1 ? "does" : "do", count == 1 ? "it was" : "they were",
                       count == 1 ? "goes" : "go", count == 1 ? "its" : "their",
                       namesOf(sorted.undated, sorted.photos));
}

} // namespace stillora
