#include "window/state/photos/Thumbnails.h"

#include "window/state/photos/ThumbnailCache.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace stillora::window {

namespace {

/// What came of the wish for a thumbnail.
struct Made {
    std::shared_ptr<const Pixels> pixels;
    std::optional<Color> color;
};

/// Of what is not clear, weighted with how opaque it is.
std::optional<Color> averageOf(const Pixels& pixels)
{
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 0;
    for (int y = 0; y < pixels.height; ++y) {
        const std::byte* pixel = pixels.bytes.data() + static_cast<std::size_t>(y) * pixels.rowBytes;
        for (int x = 0; x < pixels.width; ++x, pixel += 4) {
            red += std::to_integer<int>(pixel[0]);
            green += std::to_integer<int>(pixel[1]);
            blue += std::to_integer<int>(pixel[2]);
            alpha += std::to_integer<int>(pixel[3]);
        }
    }
    return alpha > 0 ? std::optional(Color{red / alpha, green / alpha, blue / alpha}) : std::nullopt;
}

Made make(const std::filesystem::path& cache, const PhotoFacts& photo)
{
    const ThumbnailSource source{photo.path, std::chrono::floor<std::chrono::seconds>(photo.modified)};
    auto pixels = cachedThumbnail(cache, source);
    if (!pixels && !isThumbnailImpossible(cache, source)) {
        auto made = fittedPixels(photo.path, {Thumbnails::kPixels, Thumbnails::kPixels});
        if (made) {
            keepThumbnail(cache, source, *made);
            pixels = *std::move(made);
        } else {
            keepThumbnailFailure(cache, source);
        }
    }
    if (!pixels)
        return {};
    const auto color = averageOf(*pixels);
    return {std::make_shared<const Pixels>(*std::move(pixels)), color};
}

} // namespace

Thumbnails::Thumbnails(MainLoop& loop, DocumentSession& session, PhotoStates& states, std::filesystem::path cache)
    : session_(session), states_(states), cache_(std::move(cache)),
      photosChanged_(session.photosChanged.connect([this](ListChange) { makeOn(); })),
      statesChanged_(states.changed.connect([this](const std::vector<PhotoID>&) { makeOn(); })), background_(loop)
{}

std::shared_ptr<const Pixels> Thumbnails::thumbnail(PhotoID id)
{
    const auto found = found_.find(id);
    if (found == found_.end())
        return nullptr;
    kept_.splice(kept_.begin(), kept_, found->second);
    return found->second->pixels;
}

void Thumbnails::setView(std::size_t first, std::size_t end)
{
    viewFirst_ = first;
    viewEnd_ = end;
    makeOn();
}

void Thumbnails::setPaused(bool isPaused)
{
    isPaused_ = isPaused;
    makeOn();
}

std::optional<PhotoID> Thumbnails::nextWanted()
{
    const auto& photos = session_.photos();
    const auto wantedIn = [&](std::size_t first, std::size_t end) -> std::optional<PhotoID> {
        for (std::size_t i = first; i < std::min(end, photos.size()); ++i)
            if (const PhotoID id = photos[i]; !found_.contains(id) && !making_.contains(id) &&
                                              !impossible_.contains(id) && states_.state(id).isUsable())
                return id;
        return std::nullopt;
    };
    const std::size_t screen = viewEnd_ > viewFirst_ ? viewEnd_ - viewFirst_ : 0;
    if (const auto id = wantedIn(viewFirst_, viewEnd_))
        return id;
    if (const auto id = wantedIn(viewEnd_, viewEnd_ + screen))
        return id;
    return wantedIn(viewFirst_ - std::min(screen, viewFirst_), viewFirst_);
}

void Thumbnails::makeOn()
{
    while (!isPaused_ && making_.size() < Background::mostAtOnce()) {
        const auto id = nextWanted();
        if (!id)
            return;
        making_.insert(*id);
        PhotoFacts facts = states_.state(*id).facts;
        facts.path = session_.photo(*id).path;
        background_.run([cache = cache_, facts = std::move(facts)] { return make(cache, facts); },
                        [this, id = *id](Made made) {
                            if (made.color)
                                states_.noteColor(id, *made.color);
                            take(id, std::move(made.pixels));
                        });
    }
}

void Thumbnails::take(PhotoID id, std::shared_ptr<const Pixels> pixels)
{
    making_.erase(id);
    if (!pixels) {
        impossible_.insert(id);
        makeOn();
        return;
    }
    bytes_ += pixels->bytes.size();
    kept_.push_front({id, std::move(pixels)});
    found_[id] = kept_.begin();
    while (bytes_ > kMostBytes && kept_.size() > 1) {
        bytes_ -= kept_.back().pixels->bytes.size();
        found_.erase(kept_.back().id);
        kept_.pop_back();
    }
    makeOn();
    arrived.emit(id);
}

} // namespace stillora::window
