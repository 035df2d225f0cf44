#pragma once

#include "window/photos/PhotoCell.h"
#include "window/state/WindowState.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include <giomm/liststore.h>
#include <gtkmm/builder.h>
#include <gtkmm/dragsource.h>
#include <gtkmm/gridview.h>
#include <gtkmm/label.h>
#include <gtkmm/listitem.h>
#include <gtkmm/multiselection.h>
#include <gtkmm/overlay.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/signallistitemfactory.h>

namespace stillora::window {

/// The photos of the document in their order: selected, dragged to new places, with a mark where they will land.
class PhotoGrid final {
public:
    PhotoGrid(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state);
    ~PhotoGrid();
    PhotoGrid(const PhotoGrid&) = delete;
    PhotoGrid& operator=(const PhotoGrid&) = delete;

    /// Moves the selected photos among the others.
    enum class Move { Earlier, Later, ToStart, ToEnd };
    void moveSelected(Move move);

    /// @name Something is dragged over it, at a point of the grid's overlay
    /// @{

    /// Whether that comes from the grid itself.
    bool isDragging() const { return isDragging_; }
    /// Marks where it would land.
    void showLanding(double x, double y);
    void hideLanding();
    /// Before which photo it would land.
    std::size_t landingPlace() const { return landingPlace_; }
    /// Gives the photos that were dragged from the grid the place that is marked.
    void landDragged();
    /// @}

    /// Which photo is on the screen while the movie plays; nothing while none does.
    void setPlaying(std::optional<PhotoID> photo);
    void grabFocus();

private:
    class Entry;
    struct Landing;

    void setUp(const Glib::RefPtr<Gtk::ListItem>& item);
    void bind(const Glib::RefPtr<Gtk::ListItem>& item);
    void unbind(const Glib::RefPtr<Gtk::ListItem>& item);
    void setUpDragging(PhotoCell& cell);
    Glib::RefPtr<Gdk::ContentProvider> contentOf(PhotoCell& cell);
    void show(PhotoCell& cell);
    void show(PhotoID photo);

    void photosChanged(ListChange change);
    void takeSelection();
    void showSelection();
    void scrollTo(std::size_t index);
    void focusWhenShown(PhotoID photo);
    void scheduleView();
    void fitColumns();
    void tellView();
    std::optional<Landing> landingAt(double x, double y) const;
    void scrollWhileDragging();

    WindowState& state_;
    Gtk::GridView* const grid_;
    Gtk::ScrolledWindow* const scroll_;
    Gtk::Overlay* const overlay_;
    Gtk::Widget* const mark_;
    Gtk::Label* const count_;
    Glib::RefPtr<Gio::ListStore<Glib::Object>> entries_;
    Glib::RefPtr<Gtk::MultiSelection> model_;
    std::unordered_map<PhotoID, Glib::RefPtr<Entry>> known_;
    /// Those that stand for a photo at the moment.
    std::set<PhotoCell*> cells_;
    bool isTaking_ = false;
    bool isViewScheduled_ = false;
    bool isDragging_ = false;
    std::size_t landingPlace_ = 0;
    double dragY_ = 0;
    sigc::connection scrolling_;
    sigc::connection viewing_;
    sigc::connection focusing_;
    std::optional<PhotoID> playing_;
    std::vector<Connection> connections_;
};

} // namespace stillora::window
