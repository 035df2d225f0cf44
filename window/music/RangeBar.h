#pragma once

#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtkmm/box.h>
#include <gtkmm/drawingarea.h>
#include <gtkmm/overlay.h>

namespace stillora::window {

/// How loud a sound is over time, with two handles for the part of it that plays. A handle is dragged, or moved by the
/// arrow keys while it has the focus.
class RangeBar final : public Gtk::Overlay {
public:
    /// The handles stay so far apart.
    static constexpr Seconds kShortest{0.1};

    /// @param title  of the sound, for the names of the handles
    explicit RangeBar(const std::string& title);

    /// @param length  of the whole sound
    /// @param levels  from 0 to 1; null until they are known
    void setSound(Seconds length, std::shared_ptr<const std::vector<float>> levels);
    void setRange(SoundFacts::Selection range);

    /// Told of every movement of a handle.
    std::function<void(SoundFacts::Selection)> moved;
    /// A handle was let go.
    std::function<void()> movementEnded;

private:
    enum class End { Start, End };

    void setUpHandle(Gtk::Box& handle, End end, const std::string& name);
    void setUpDragging();
    void draw(const Cairo::RefPtr<Cairo::Context>& context, int width, int height);
    void place();
    void placeHandle(Gtk::Box& handle, Seconds time);
    void moveTo(End end, Seconds time);
    /// In seconds for each pixel.
    double scale() const;
    bool keyPressed(End end, unsigned key);

    Gtk::DrawingArea wave_;
    Gtk::Box start_;
    Gtk::Box end_;
    Seconds length_{0};
    SoundFacts::Selection range_;
    std::shared_ptr<const std::vector<float>> levels_;
    End dragged_ = End::Start;
    double dragStart_ = 0;
};

} // namespace stillora::window
