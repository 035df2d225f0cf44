#include "window/music/MusicLine.h"

#include "window/toolkit/Accessibility.h"

#include <algorithm>
#include <array>

namespace stillora::window {

namespace {

constexpr int kHeight = 30;
constexpr double kPicturesHeight = 8;
constexpr double kMusicTop = 13;
constexpr double kMusicHeight = 14;

struct Paint {
    double red, green, blue;
};
/// Of the sounds in turn; each is told from the next in dark style too.
constexpr std::array<Paint, 4> kSounds{
    {{0.21, 0.52, 0.89}, {0.57, 0.25, 0.67}, {0.15, 0.64, 0.41}, {0.90, 0.50, 0.10}}};

} // namespace

MusicLine::MusicLine()
{
    set_content_height(kHeight);
    set_hexpand(true);
    set_direction(Gtk::TextDirection::LTR);
    set_draw_func([this](const auto& context, int width, int height) { draw(context, width, height); });
}

void MusicLine::show(const MusicPlan& plan)
{
    plan_ = plan;
    setAccessibleName(*this, plan.sentence);
    queue_draw();
}

void MusicLine::draw(const Cairo::RefPtr<Cairo::Context>& context, int width, int)
{
    if (plan_.length <= Seconds(0))
        return;
    Seconds heard = plan_.length;
    if (!plan_.pieces.empty())
        heard = std::max(heard, plan_.pieces.back().end);
    const double scale = width / (heard + plan_.cutOff).count();

    const Gdk::RGBA color = get_style_context()->get_color();
    context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), 0.35);
    context->rectangle(0, 0, plan_.length.count() * scale, kPicturesHeight);
    context->fill();

    drawPieces(context, scale);
    if (plan_.cutOff > Seconds(0)) {
        context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), 0.15);
        context->rectangle(heard.count() * scale, kMusicTop, plan_.cutOff.count() * scale, kMusicHeight);
        context->fill();
    }
    // The end of the pictures, where all ends.
    context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), 0.8);
    context->rectangle(std::min(plan_.length.count() * scale, width - 1.5), 0, 1.5, kHeight);
    context->fill();
}

void MusicLine::drawPieces(const Cairo::RefPtr<Cairo::Context>& context, double scale)
{
    const Gdk::RGBA color = get_style_context()->get_color();
    std::vector<SoundID> seen;
    for (const MusicPlan::Piece& piece : plan_.pieces) {
        const double x = piece.start.count() * scale;
        const double end = piece.end.count() * scale;
        if (piece.kind == MusicPlan::Piece::Kind::Silence || !piece.sound) {
            context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), 0.3);
            context->rectangle(x, kMusicTop + kMusicHeight / 2 - 1, end - x, 2);
            context->fill();
            continue;
        }
        auto place = std::find(seen.begin(), seen.end(), *piece.sound);
        if (place == seen.end())
            place = seen.insert(seen.end(), *piece.sound);
        const Paint& paint = kSounds[static_cast<std::size_t>(place - seen.begin()) % kSounds.size()];
        const double right = std::max(x + 1, end - 1);
        context->set_source_rgba(paint.red, paint.green, paint.blue, piece.isRepeat ? 0.6 : 0.95);
        const double fade = plan_.fadeStart ? std::clamp(plan_.fadeStart->count() * scale, x, right) : right;
        // Full until it gets quieter, and then less and less.
        context->move_to(x, kMusicTop);
        context->line_to(fade, kMusicTop);
        context->line_to(right, fade < right ? kMusicTop + kMusicHeight : kMusicTop);
        context->line_to(right, kMusicTop + kMusicHeight);
        context->line_to(x, kMusicTop + kMusicHeight);
        context->close_path();
        context->fill();
    }
}

} // namespace stillora::window
