// Makes the silent video of a folder's photos without a service, and prints the seconds it took, the peak of the
// process's memory in MB and where the movie is.

#include "platform/decoders/CGImageSource.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/system/NSProcessInfo.h"
#include "tests/video/TestVideoStageContext.h"
#include "video/SilentVideo.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace {

using platform::DispatchQueue;

/// As the creator makes them.
void setUpFrameQueue(platform::NSOperationQueue& queue)
{
    const auto processors = static_cast<int>(platform::NSProcessInfo::processInfo().processorCount());
    queue.setUnderlyingQueue(DispatchQueue::create("frames", {.kind = DispatchQueue::Kind::Concurrent, .niceness = 5}));
    queue.setMaxConcurrentOperationCount(std::max(1, processors - processors / 4));
}

/// The folder's photos by name; those that cannot be opened are left out.
PhotoList photosIn(const std::string& folder)
{
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        paths.push_back(entry.path().native());
    std::ranges::sort(paths);
    PhotoList photos;
    for (const std::string& path : paths) {
        const auto url = platform::NSURL::fileURLWithPath(path);
        const auto source = platform::CGImageSource::createWithURL(url);
        const auto properties = source ? source->copyPropertiesAtIndex() : std::nullopt;
        if (!properties)
            continue;
        auto width = static_cast<double>(properties->pixelWidth);
        auto height = static_cast<double>(properties->pixelHeight);
        if (properties->orientation.value_or(1) >= 5)
            std::swap(width, height);
        photos.push_back(std::make_shared<MORPhoto>());
        photos.back()->setPhotoURL(url);
        photos.back()->setSize({width, height});
        photos.back()->setFileSize(static_cast<int64_t>(std::filesystem::file_size(path)));
    }
    return photos;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 6) {
        std::fprintf(stderr, "usage: silent-video PHOTO-FOLDER HEIGHT CODEC SECONDS OUTPUT-FOLDER\n");
        return 2;
    }
    const PhotoList photos = photosIn(arguments[1]);
    if (photos.size() < 5) {
        std::fprintf(stderr, "silent-video: at least five photos are needed\n");
        return 2;
    }
    const auto folder = platform::NSURL::fileURLWithPath(arguments[5], true);
    TestVideoStageContext context(folder, folder);
    setUpFrameQueue(context.bufferCreationQ());
    const auto start = std::chrono::steady_clock::now();
    const auto movie = videoWithPhotos(context, photos, std::atoll(arguments[2]), false, std::atof(arguments[4]),
                                       std::string(arguments[3]));
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    if (!movie)
        return 1;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%.3f %ld %s\n", seconds.count(), usage.ru_maxrss / 1000, movie->URL().path().c_str());
    return 0;
}
