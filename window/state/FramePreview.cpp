#include "window/state/FramePreview.h"

#include "window/state/photos/PhotoStates.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>

namespace stillora::window {

/// All that a frame depends on.
struct FramePreview::Wish {
    PhotoID photo{};
    PhotoFacts facts;
    FrameStyle style;
    FramePlace place;
    std::size_t mostLines = 0;

    bool isSameAs(const Wish& other) const
    {
        return photo == other.photo && facts.path == other.facts.path && facts.modified == other.facts.modified &&
               style.quality == other.style.quality && style.reducesBorders == other.style.reducesBorders &&
               style.showsFaces == other.style.showsFaces && style.watermark == other.style.watermark &&
               place.index == other.place.index && place.count == other.place.count && mostLines == other.mostLines;
    }
};

FramePreview::FramePreview(MainLoop& loop, DocumentSession& session, Selection& selection, PhotoStates& states,
                           MovieOutlook& outlook)
    : session_(session), selection_(selection), states_(states), outlook_(outlook),
      selectionChanged_(selection.changed.connect([this] { update(); })),
      outlookChanged_(outlook.changed.connect([this] { update(); })),
      statesChanged_(states.changed.connect([this](const std::vector<PhotoID>& photos) {
          if (photo_ && std::ranges::find(photos, *photo_) != photos.end())
              update();
      })),
      background_(loop)
{}

void FramePreview::setShowsFaces(bool showsFaces)
{
    showsFaces_ = showsFaces;
    update();
}

void FramePreview::setShownLines(std::size_t lines)
{
    // In steps, so that a window that is drawn larger is not drawn anew at each pixel.
    const std::size_t most = std::bit_ceil(lines);
    if (std::exchange(mostLines_, most) != most)
        update();
}

void FramePreview::update()
{
    const auto current = selection_.current();
    const bool isOther = current != std::exchange(photo_, current);
    if (isOther) {
        frame_.reset();
        faceCount_ = 0;
    }
    fault_.clear();
    wish_.reset();
    const PhotoState* state = current ? &states_.state(*current) : nullptr;
    if (state && state->kind == PhotoState::Kind::Unusable) {
        fault_ = state->reason;
        frame_.reset();
    } else if (state && state->isUsable() && outlook_.frameSize()) {
        const auto& photos = outlook_.requestPhotos();
        const auto place = std::ranges::find(photos, *current);
        auto wish = std::make_shared<Wish>();
        wish->photo = *current;
        wish->facts = state->facts;
        wish->style.quality = static_cast<std::int64_t>(outlook_.frameSize()->height);
        wish->style.reducesBorders = session_.settings().reducesBorders;
        wish->style.showsFaces = showsFaces_;
        wish->style.watermark = session_.settings().watermark;
        if (place != photos.end())
            wish->place = {static_cast<std::size_t>(place - photos.begin()), photos.size()};
        wish->mostLines = mostLines_;
        wish_ = std::move(wish);
        draw();
    } else {
        drawn_.reset();
    }
    changed.emit();
}

void FramePreview::draw()
{
    if (isDrawing_ || !wish_ || (frame_ && drawn_ && wish_->isSameAs(*drawn_)))
        return;
    isDrawing_ = true;
    drawn_ = wish_;
    background_.run([wish = wish_] { return drawFrame(wish->facts, wish->style, wish->place, wish->mostLines); },
                    [this, wish = wish_](Result<FramePixels> drawn) {
                        isDrawing_ = false;
                        // Another one may be wanted by now.
                        if (wish_ && wish_->isSameAs(*wish)) {
                            fault_ = drawn ? std::string() : drawn.error().message;
                            faceCount_ = drawn ? drawn->faceCount : 0;
                            frame_ = drawn ? std::make_shared<const Pixels>(std::move(drawn->pixels)) : nullptr;
                        } else {
                            draw();
                        }
                        changed.emit();
                    });
}

} // namespace stillora::window
