#include "window/state/MovieOutlook.h"

#include <stillora/Localization.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace stillora::window {

namespace {

/// @name What comes of a frame, in bytes: measured on photos of cameras and telephones
/// @{

struct CodecCost {
    std::string_view codec;
    /// For each pixel that a photo covers.
    double bytesPerPixel = 0;
};

constexpr std::array kCosts{CodecCost{"avc1", 0.27}, CodecCost{"hvc1", 0.22}, CodecCost{"jpeg", 0.24},
                            CodecCost{"apcn", 0.46}, CodecCost{"ap4h", 1.02}, CodecCost{"apch", 0.84},
                            CodecCost{"apcs", 0.25}, CodecCost{"apco", 0.13}, CodecCost{"ap4x", 1.36}};
/// Of a photo's file, for each of its pixels: plain ones have less, those full of detail more.
constexpr double kUsualDetail = 0.3;
/// Formats that keep every pixel are no measure of detail.
constexpr double kMostDetail = 0.6;
constexpr double kLeastDetail = 0.05;
/// A file five times as large makes a frame not even twice as large.
constexpr double kDetailPower = 0.35;
/// Of sound.
constexpr double kBytesPerSecond = 16'000;
/// @}

double bytesPerPixelOf(const std::string& codec)
{
    const auto cost = std::ranges::find(kCosts, codec, &CodecCost::codec);
    return cost == kCosts.end() ? kCosts.front().bytesPerPixel : cost->bytesPerPixel;
}

/// Pixels of the frame that a photo covers; it is never enlarged.
double coveredPixels(Size photo, Size frame, bool reducesBorders)
{
    const double fitting = std::min(frame.width / photo.width, frame.height / photo.height);
    const double covering = std::max(frame.width / photo.width, frame.height / photo.height);
    const double scale = std::min(1.0, reducesBorders ? covering : fitting);
    return std::min(frame.width, photo.width * scale) * std::min(frame.height, photo.height * scale);
}

} // namespace

std::uint64_t estimatedBytesOf(const MovieRequest& request, Size frame)
{
    const double perPixel = bytesPerPixelOf(request.codec);
    double bytes = 0;
    for (const PhotoFacts& photo : request.photos) {
        const double pixels = photo.size.width * photo.size.height;
        if (pixels <= 0)
            continue;
        const double detail =
            std::clamp(static_cast<double>(photo.fileSize) / pixels, kLeastDetail, kMostDetail) / kUsualDetail;
        bytes += coveredPixels(photo.size, frame, request.reducesBorders) * perPixel * std::pow(detail, kDetailPower);
    }
    const auto soundEnd = request.plan.soundEnd();
    bytes += soundEnd ? std::min(*soundEnd, request.plan.musicEnd).count() * kBytesPerSecond : 0;
    return static_cast<std::uint64_t>(bytes);
}

MovieOutlook::MovieOutlook(MainLoop& loop, DocumentSession& session, PhotoStates& photos, SoundStates& sounds)
    : loop_(loop), session_(session), photos_(photos), sounds_(sounds),
      sessionChanged_(session.changed.connect([this] { schedule(); })),
      photosChanged_(photos.changed.connect([this](const std::vector<PhotoID>&) { schedule(); })),
      soundsChanged_(sounds.changed.connect([this](SoundID) { schedule(); }))
{}

MovieOutlook::~MovieOutlook()
{
    *isAlive_ = false;
}

void MovieOutlook::schedule()
{
    if (std::exchange(isScheduled_, true))
        return;
    loop_.post([this, isAlive = isAlive_] {
        if (!*isAlive)
            return;
        isScheduled_ = false;
        reckon();
        changed.emit();
    });
}

void MovieOutlook::reckon()
{
    const MovieSettings& settings = session_.settings();
    MovieWish wish;
    wish.photos = photos_.usable();
    wish.timePerPhoto = settings.timePerPhoto;
    wish.sounds = sounds_.usable();
    wish.loopsSounds = settings.loopsSounds;
    // Without music there is nothing to fit.
    wish.fitsMusic = settings.fitsMusic && !wish.sounds.empty();
    wish.fillsSilence = settings.fillsSilence;
    std::optional<stillora::MoviePlan> plan;
    music_ = planMusicFor(wish, sounds_.usableIDs(), &plan);
    frameSize_.reset();
    estimatedBytes_ = 0;
    request_.reset();
    requestPhotos_ = photos_.usableIDs();
    wasComplete_ = areFilesKnown();
    if (wish.photos.empty())
        return;
    frameSize_ = frameSizeForQuality(settings.quality, wish.photos);
    if (!plan)
        return;
    MovieRequest request;
    request.photos = std::move(wish.photos);
    request.sounds = std::move(wish.sounds);
    request.plan = *std::move(plan);
    request.codec = settings.codec;
    request.quality = settings.quality;
    request.reducesBorders = settings.reducesBorders;
    request.watermark = settings.watermark;
    estimatedBytes_ = estimatedBytesOf(request, *frameSize_);
    request_ = std::make_shared<const MovieRequest>(std::move(request));
}

std::string MovieOutlook::lengthText() const
{
    return lengthInWords(music_.length);
}

std::string MovieOutlook::frameSizeText() const
{
    // Isolated from left to right: between words of another direction the height would come first.
    return frameSize_ ? fmt::format("\u2066{} × {}\u2069", frameSize_->width, frameSize_->height) : std::string();
}

std::string MovieOutlook::bytesText() const
{
    constexpr double kMega = 1e6;
    const auto bytes = static_cast<double>(estimatedBytes_);
    if (bytes >= 1000 * kMega)
        return localized("about {:.1f} GB", bytes / (1000 * kMega));
    // More digits would promise more than is known.
    return localized("about {:.0f} MB", std::max(1.0, bytes / kMega));
}

std::string MovieOutlook::photosText() const
{
    const std::size_t bad = photos_.unusable().size();
    const std::size_t all = session_.photos().size();
    if (bad == 0)
        return localizedCount(all, "{} photo", "{} photos");
    return localizedCount(all, "{} photo; {} cannot be used", "{} photos; {} of them cannot be used", bad);
}

bool MovieOutlook::isComplete() const
{
    return wasComplete_ && areFilesKnown();
}

bool MovieOutlook::areFilesKnown() const
{
    return photos_.waitingCount() == 0 && !sounds_.isAnyWaiting();
}

} // namespace stillora::window
