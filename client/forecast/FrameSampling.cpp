#include "client/forecast/FrameSampling.h"

#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/service/WatermarkChoice.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSString.h"
#include "platform/writer/AVAssetWriterInput.h"
#include "video/FramePlacement.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;

/// The share of the time in which frames are coded as JPEG, where the movie's own codec takes much longer.
constexpr double kQuickShare = 0.4;

/// How many times as long as on an idle machine it may take.
constexpr double kLongestWait = 2;

/// How many photos that were made speak for one that was not.
constexpr size_t kNeighbours = 4;
/// How far apart photos of different formats count, in doublings: their bytes do not tell the same.
constexpr double kOtherFormat = 4;
/// The power that is taken where few photos tell another, and how much it counts, in squared doublings.
constexpr double kUsualGrowth = 0.5;
constexpr double kUsualWeight = 1;
/// Of photos that are equal by what is known of them, none counts more than the others.
constexpr double kNearest = 0.1;

/// What is known of a photo without drawing it.
struct Traits {
    std::string format;
    /// Logarithms of base 2: of its pixels, and of its bytes for each of them.
    double pixels = 0;
    double density = 0;
    /// Pixels of the frame that it fills.
    double area = 0;
};

Traits traitsOf(const PhotoFacts& photo, Size frame, bool reducesBorders)
{
    const double pixels = std::max(photo.size.width * photo.size.height, 1.0);
    const double bound =
        thumbnailBound({photo.size.width, photo.size.height}, {frame.width, frame.height}, reducesBorders);
    const double scale = std::min(1.0, bound / std::max({photo.size.width, photo.size.height, 1.0}));
    const double area =
        std::min(photo.size.width * scale, frame.width) * std::min(photo.size.height * scale, frame.height);
    return {platform::lowercaseASCII(platform::pathExtension(photo.path.native())), std::log2(pixels),
            std::log2(std::max(static_cast<double>(photo.fileSize), 1.0) / pixels), std::max(area, 1.0)};
}

std::vector<Traits> traitsOf(const MovieRequest& request)
{
    const Size frame = frameSizeForQuality(request.quality, request.photos);
    std::vector<Traits> traits;
    for (const PhotoFacts& photo : request.photos)
        traits.push_back(traitsOf(photo, frame, request.reducesBorders));
    return traits;
}

double distance(const Traits& a, const Traits& b)
{
    return std::hypot(a.pixels - b.pixels, a.density - b.density, std::log2(a.area / b.area)) +
           (a.format == b.format ? 0 : kOtherFormat);
}

/// What a frame without a photo takes.
double bytesOfBlack(std::string_view codec, Size frame)
{
    const auto bytes = FileReader::shared().ask(BlackFrameQuestion{frame, std::string(codec)});
    return bytes ? *bytes : 0;
}

/// What was found out of single photos.
using KnownCosts = std::vector<std::pair<size_t, FrameCost>>;

/// By what power of a photo's density the bytes of its frame grow: a little of each format's photos is enough to tell,
/// and none leaves the usual.
double growthOf(const KnownCosts& known, const std::vector<Traits>& traits, double bytesOfNothing)
{
    struct Point {
        double density;
        double bytes;
    };
    std::map<std::string, std::vector<Point>> formats;
    for (const auto& [photo, cost] : known)
        if (cost.bytes > bytesOfNothing)
            formats[traits[photo].format].push_back(
                {traits[photo].density, std::log2((cost.bytes - bytesOfNothing) / traits[photo].area)});
    double squares = kUsualWeight;
    double products = kUsualWeight * kUsualGrowth;
    for (const auto& [format, points] : formats) {
        Point mean{0, 0};
        for (const Point& point : points) {
            mean.density += point.density / static_cast<double>(points.size());
            mean.bytes += point.bytes / static_cast<double>(points.size());
        }
        for (const Point& point : points) {
            squares += (point.density - mean.density) * (point.density - mean.density);
            products += (point.density - mean.density) * (point.bytes - mean.bytes);
        }
    }
    return std::clamp(products / squares, 0.0, 1.0);
}

/// The costs of photos, by those of photos like them.
class Neighbours final {
public:
    Neighbours(const KnownCosts& known, const std::vector<Traits>& traits, double bytesOfNothing)
        : known_(known), traits_(traits), bytesOfNothing_(bytesOfNothing),
          growth_(growthOf(known, traits, bytesOfNothing))
    {}

    FrameCost costOf(const Traits& photo) const
    {
        std::vector<std::pair<double, size_t>> near;
        for (size_t i = 0; i < known_.size(); ++i)
            near.emplace_back(distance(photo, traits_[known_[i].first]), i);
        const auto end = near.begin() + static_cast<std::ptrdiff_t>(std::min(kNeighbours, near.size()));
        std::ranges::partial_sort(near, end);
        FrameCost cost;
        double votes = 0;
        for (auto each = near.begin(); each != end; ++each) {
            const auto& [index, frame] = known_[each->second];
            const double vote = 1 / (each->first + kNearest);
            votes += vote;
            cost.bytes += vote * std::max(frame.bytes - bytesOfNothing_, 0.0) * ratio(photo, traits_[index]);
            cost.seconds += vote * frame.seconds;
        }
        return {bytesOfNothing_ + cost.bytes / votes, cost.seconds / votes};
    }

private:
    double ratio(const Traits& photo, const Traits& other) const
    {
        const double growth = photo.format == other.format ? growth_ * (photo.density - other.density) : 0;
        return photo.area / other.area * std::exp2(growth);
    }

    const KnownCosts& known_;
    const std::vector<Traits>& traits_;
    const double bytesOfNothing_;
    const double growth_;
};

std::vector<FrameCost> costsOfAll(const KnownCosts& known, const std::vector<Traits>& traits, double bytesOfNothing)
{
    const Neighbours neighbours(known, traits, bytesOfNothing);
    std::vector<FrameCost> costs;
    for (const Traits& photo : traits)
        costs.push_back(neighbours.costOf(photo));
    for (const auto& [photo, cost] : known)
        costs[photo] = cost;
    return costs;
}

/// Whether coding takes so much longer than drawing that few frames could be made.
bool codesSlowly(std::string_view codec)
{
    return codec != platform::kAVVideoCodecJPEG && codec != platform::kAVVideoCodecH264;
}

/// 0, 1/2, 1/4, 3/4, 1/8 and so on: each as far as can be from those before it.
double spreadFraction(uint64_t number)
{
    double fraction = 0;
    for (double part = 0.5; number > 0; number >>= 1, part /= 2)
        fraction += part * static_cast<double>(number & 1);
    return fraction;
}

/// Indexes so that those of any number from the front on are spread evenly over their order.
std::vector<size_t> spread(size_t count, const std::function<bool(size_t a, size_t b)>& isBefore)
{
    std::vector<size_t> sorted(count);
    std::iota(sorted.begin(), sorted.end(), size_t{0});
    std::ranges::stable_sort(sorted, isBefore);
    std::vector<size_t> order;
    const uint64_t rounded = std::bit_ceil(std::max<uint64_t>(count, 1));
    for (uint64_t i = 0; i < rounded; ++i)
        if (const auto place = static_cast<size_t>(spreadFraction(i) * static_cast<double>(rounded)); place < count)
            order.push_back(sorted[place]);
    return order;
}

/// Makes frames of a request's photos on all processors.
class Sampling final {
public:
    Sampling(const MovieRequest& request, const std::function<bool()>& goesOn)
        : request_(request), frame_(frameSizeForQuality(request.quality, request.photos)),
          order_(samplingOrder(request)), goesOn_(goesOn)
    {}

    void setOrder(std::vector<size_t> order) { order_ = std::move(order); }

    /// In that order, until the time is up.
    KnownCosts make(std::string_view codec, Seconds budget)
    {
        const auto start = Clock::now();
        std::atomic<size_t> next{0};
        platform::NSOperationQueue queue;
        const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
        queue.setMaxConcurrentOperationCount(static_cast<int>(processors));
        for (unsigned i = 0; i < processors; ++i)
            queue.addOperationWithBlock([&] {
                Seconds spent{0};
                for (size_t turn = next++; turn < order_.size() && goesOn(); turn = next++) {
                    spent += makeOne(order_[turn], codec);
                    if (spent >= budget || Clock::now() - start >= budget * kLongestWait)
                        return;
                }
            });
        queue.waitUntilAllOperationsAreFinished();
        const platform::LockGuard guard(lock_);
        return std::exchange(known_, {});
    }

    Size frame() const { return frame_; }
    bool isStopped() const { return isStopped_; }

private:
    bool goesOn()
    {
        if (goesOn_ && !goesOn_())
            isStopped_ = true;
        return !isStopped_;
    }

    /// @return what it took of the processor's time
    Seconds makeOne(size_t photo, std::string_view codec)
    {
        const PhotoFacts& facts = request_.photos[photo];
        const size_t first = photo * request_.plan.framesPerPhoto;
        const size_t count = request_.plan.frameCount(request_.photos.size());
        const auto frame = FileReader::shared().ask(
            SampleQuestion{.file = facts.path,
                           .photoSize = facts.size,
                           .frame = frame_,
                           .reducesBorders = request_.reducesBorders,
                           .carriesWatermark = drawsWatermark(request_.watermark) && carriesWatermark(first, count),
                           .codec = std::string(codec)},
            [this] { return goesOn(); });
        if (!frame || !*frame)
            return Seconds(0);
        const platform::LockGuard guard(lock_);
        known_.emplace_back(photo, FrameCost{(*frame)->bytes, (*frame)->time.count()});
        return (*frame)->processorTime;
    }

    const MovieRequest& request_;
    const Size frame_;
    std::vector<size_t> order_;
    const std::function<bool()>& goesOn_;
    std::atomic<bool> isStopped_{false};
    platform::Lock lock_;
    KnownCosts known_ GUARDED_BY(lock_);
};

} // namespace

std::vector<size_t> samplingOrder(const MovieRequest& request)
{
    const std::vector<Traits> traits = traitsOf(request);
    return spread(traits.size(), [&](size_t a, size_t b) {
        return std::pair(traits[a].format, traits[a].density) < std::pair(traits[b].format, traits[b].density);
    });
}

FrameSample sampleFrames(const MovieRequest& request, Seconds budget, const std::function<bool()>& goesOn)
{
    Sampling sampling(request, goesOn);
    std::vector<Traits> traits = traitsOf(request);
    const bool isSlow = codesSlowly(request.codec);
    if (isSlow) {
        // What JPEG makes of a frame tells much more of it than the file does.
        const double nothing = bytesOfBlack(platform::kAVVideoCodecJPEG, sampling.frame());
        const KnownCosts quick = sampling.make(platform::kAVVideoCodecJPEG, budget * kQuickShare);
        if (quick.empty() || sampling.isStopped())
            return {};
        const std::vector<FrameCost> costs = costsOfAll(quick, traits, nothing);
        for (size_t i = 0; i < traits.size(); ++i) {
            traits[i].density = std::log2(std::max(costs[i].bytes - nothing, 1.0) / traits[i].area);
            traits[i].format.clear();
        }
        sampling.setOrder(spread(costs.size(), [&](size_t a, size_t b) { return costs[a].bytes < costs[b].bytes; }));
    }
    const KnownCosts known = sampling.make(request.codec, budget * (isSlow ? 1 - kQuickShare : 1));
    FrameSample sample;
    sample.madeCount = known.size();
    if (known.empty() || sampling.isStopped())
        return sample;
    sample.costs = costsOfAll(known, traits, bytesOfBlack(request.codec, sampling.frame()));
    // What differs between the frames of one photo is the watermark at most.
    for (FrameCost& cost : sample.costs) {
        cost.bytes *= static_cast<double>(request.plan.framesPerPhoto);
        cost.seconds *= static_cast<double>(request.plan.framesPerPhoto);
    }
    return sample;
}

} // namespace stillora
