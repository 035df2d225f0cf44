#pragma once

#include "window/state/MusicPlan.h"

#include <gtkmm/drawingarea.h>

namespace stillora::window {

/// Music and pictures beside each other: above how long the pictures last, below what is heard meanwhile, where it is
/// repeated, gets quieter, is cut, and where there is silence.
class MusicLine final : public Gtk::DrawingArea {
public:
    MusicLine();

    void show(const MusicPlan& plan);

private:
    void draw(const Cairo::RefPtr<Cairo::Context>& context, int width, int height);
    void drawPieces(const Cairo::RefPtr<Cairo::Context>& context, double scale);

    MusicPlan plan_;
};

} // namespace stillora::window
