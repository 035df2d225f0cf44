// Prints what each photo takes of a processor as a frame: to draw it, and to code it. The constants by which the client
// weighs the photos of a movie come from its figures.

#include <stillora/Movie.h>

#include "platform/files/NSURL.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "video/PhotoFrame.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

namespace {

/// Of several tries the quickest counts.
constexpr int kTries = 3;

/// Of all threads, so that what a library starts beside is counted too, and other programs are not.
double processorSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 4) {
        std::fprintf(stderr, "usage: frame-cost HEIGHT CODEC PHOTO...\n");
        return 2;
    }
    std::vector<stillora::PhotoCandidate> candidates;
    for (int i = 3; i < count; ++i)
        candidates.push_back({.path = arguments[i]});
    const auto checked = stillora::checkPhotos(candidates);
    const auto frame = stillora::frameSizeForQuality(std::atoll(arguments[1]), checked.good);
    const auto encoder =
        platform::AVAssetWriterEncoder::create({.codec = arguments[2], .width = frame.width, .height = frame.height});
    if (!encoder || !checked.bad.empty()) {
        std::fprintf(stderr, "frame-cost: the codec or a photo cannot be used\n");
        return 1;
    }
    std::printf("width\theight\tbytes\tdraw ms\tcode ms\tcoded bytes\tphoto\n");
    for (const auto& photo : checked.good) {
        double draw = std::numeric_limits<double>::max();
        double code = draw;
        std::vector<uint8_t> packet;
        for (int i = 0; i < kTries; ++i) {
            const double start = processorSeconds();
            const auto made = renderPhotoFrame({.photo = platform::NSURL::fileURLWithPath(photo.path.native(), false),
                                                .photoSize = {photo.size.width, photo.size.height},
                                                .frame = {frame.width, frame.height}});
            const double drawn = processorSeconds();
            if (!made || !encoder->encode(made->buffer, packet))
                return 1;
            draw = std::min(draw, drawn - start);
            code = std::min(code, processorSeconds() - drawn);
        }
        std::printf("%.0f\t%.0f\t%lld\t%.2f\t%.2f\t%zu\t%s\n", photo.size.width, photo.size.height,
                    static_cast<long long>(photo.fileSize), draw * 1e3, code * 1e3, packet.size(), photo.path.c_str());
    }
    return 0;
}
