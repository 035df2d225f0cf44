#include "window/photos/PhotoGrid.h"

#include "window/toolkit/Textures.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include <gdkmm/contentprovider.h>
#include <giomm/file.h>
#include <glibmm/main.h>
#include <gtk/gtk.h>
#include <gtkmm/adjustment.h>

namespace stillora::window {

namespace {

/// So near to an edge of the list, in pixels, what is dragged scrolls it.
constexpr double kScrollingEdge = 48;
constexpr int kMarkWidth = 4;

graphene_rect_t boundsOf(Gtk::Widget& widget, Gtk::Widget& target)
{
    graphene_rect_t bounds;
    if (!gtk_widget_compute_bounds(widget.gobj(), target.gobj(), &bounds))
        graphene_rect_init(&bounds, 0, 0, 0, 0);
    return bounds;
}

} // namespace

/// A photo as the list model has it.
class PhotoGrid::Entry final : public Glib::Object {
public:
    explicit Entry(PhotoID shown) : Glib::ObjectBase(typeid(Entry)), photo(shown) {}

    const PhotoID photo;
};

struct PhotoGrid::Landing {
    std::size_t place = 0;
    /// In the overlay.
    double x = 0;
    double y = 0;
    double height = 0;
};

PhotoGrid::PhotoGrid(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state)
    : state_(state), grid_(builder->get_widget<Gtk::GridView>("grid")),
      scroll_(builder->get_widget<Gtk::ScrolledWindow>("grid-scroll")),
      overlay_(builder->get_widget<Gtk::Overlay>("grid-overlay")),
      mark_(builder->get_widget<Gtk::Widget>("landing-mark")), count_(builder->get_widget<Gtk::Label>("photo-count")),
      entries_(Gio::ListStore<Glib::Object>::create()), model_(Gtk::MultiSelection::create(entries_))
{
    auto factory = Gtk::SignalListItemFactory::create();
    factory->signal_setup().connect([this](const auto& item) { setUp(item); });
    factory->signal_bind().connect([this](const auto& item) { bind(item); });
    factory->signal_unbind().connect([this](const auto& item) { unbind(item); });
    grid_->set_factory(factory);
    grid_->set_model(model_);
    overlay_->set_clip_overlay(*mark_, true);

    model_->signal_selection_changed().connect([this](guint, guint) { takeSelection(); });
    const auto adjustment = scroll_->get_vadjustment();
    adjustment->signal_value_changed().connect([this] { scheduleView(); });
    adjustment->signal_changed().connect([this] { scheduleView(); });
    // Of the width.
    scroll_->get_hadjustment()->signal_changed().connect([this] { scheduleView(); });

    connections_.push_back(state_.session.photosChanged.connect([this](ListChange change) { photosChanged(change); }));
    connections_.push_back(state_.selection.changed.connect([this] { showSelection(); }));
    connections_.push_back(state_.photos.changed.connect([this](const std::vector<PhotoID>& photos) {
        for (const PhotoID photo : photos)
            show(photo);
    }));
    connections_.push_back(state_.thumbnails.arrived.connect([this](PhotoID photo) { show(photo); }));
    connections_.push_back(state_.outlook.changed.connect([this] { count_->set_text(state_.outlook.photosText()); }));
    photosChanged({0, 0, state_.session.photos().size()});
}

PhotoGrid::~PhotoGrid()
{
    scrolling_.disconnect();
    viewing_.disconnect();
    focusing_.disconnect();
}

void PhotoGrid::setUp(const Glib::RefPtr<Gtk::ListItem>& item)
{
    auto* cell = Gtk::make_managed<PhotoCell>();
    setUpDragging(*cell);
    item->set_child(*cell);
}

void PhotoGrid::bind(const Glib::RefPtr<Gtk::ListItem>& item)
{
    auto* cell = dynamic_cast<PhotoCell*>(item->get_child());
    const auto entry = std::dynamic_pointer_cast<Entry>(item->get_item());
    cell->setPhoto(entry->photo, item->get_position());
    cells_.insert(cell);
    show(*cell);
    scheduleView();
}

void PhotoGrid::unbind(const Glib::RefPtr<Gtk::ListItem>& item)
{
    auto* cell = dynamic_cast<PhotoCell*>(item->get_child());
    cells_.erase(cell);
    cell->clear();
}

void PhotoGrid::show(PhotoCell& cell)
{
    const PhotoID photo = *cell.photo();
    const PhotoState& state = state_.photos.state(photo);
    cell.show(state_.session.photo(photo).title, state, textureOf(state_.thumbnails.thumbnail(photo)));
    cell.setPlaying(playing_ == photo);
}

void PhotoGrid::show(PhotoID photo)
{
    for (PhotoCell* cell : cells_)
        if (cell->photo() == photo)
            show(*cell);
}

void PhotoGrid::setPlaying(std::optional<PhotoID> photo)
{
    if (playing_ == photo)
        return;
    playing_ = photo;
    for (PhotoCell* cell : cells_)
        cell->setPlaying(photo && cell->photo() == photo);
    if (photo)
        if (const auto index = state_.session.indexOf(*photo))
            scrollTo(*index);
}

void PhotoGrid::photosChanged(ListChange change)
{
    const auto& photos = state_.session.photos();
    std::vector<Glib::RefPtr<Glib::Object>> added;
    added.reserve(change.added);
    for (std::size_t index = change.position; index < change.position + change.added; ++index) {
        auto& entry = known_[photos[index]];
        if (!entry)
            entry = Glib::make_refptr_for_instance<Entry>(new Entry(photos[index]));
        added.push_back(entry);
    }
    isTaking_ = true;
    entries_->splice(static_cast<guint>(change.position), static_cast<guint>(change.removed), added);
    isTaking_ = false;
    // Numbers of the photos behind a change are other ones.
    for (PhotoCell* cell : cells_)
        if (const auto index = state_.session.indexOf(*cell->photo()))
            cell->setPhoto(*cell->photo(), *index);
    showSelection();
    scheduleView();
}

void PhotoGrid::takeSelection()
{
    if (isTaking_)
        return;
    const auto& photos = state_.session.photos();
    std::vector<PhotoID> selected;
    const auto chosen = model_->get_selection();
    for (std::size_t i = 0; i < chosen->get_size(); ++i)
        if (const guint index = chosen->get_nth(static_cast<guint>(i)); index < photos.size())
            selected.push_back(photos[index]);
    isTaking_ = true;
    if (selected.size() == 1)
        state_.selection.select(selected.front());
    else
        state_.selection.set(selected);
    isTaking_ = false;
}

void PhotoGrid::showSelection()
{
    if (isTaking_)
        return;
    const auto& photos = state_.session.photos();
    const auto selected = Gtk::Bitset::create();
    const auto all = Gtk::Bitset::create();
    all->add_range(0, static_cast<guint>(photos.size()));
    for (const PhotoID photo : state_.selection.photos())
        if (const auto index = state_.session.indexOf(photo))
            selected->add_range(static_cast<guint>(*index), 1);
    isTaking_ = true;
    model_->set_selection(selected, all);
    isTaking_ = false;
}

void PhotoGrid::moveSelected(Move move)
{
    const std::vector<PhotoID> moved = state_.selection.photos();
    if (moved.empty())
        return;
    const std::size_t first = *state_.session.indexOf(moved.front());
    const std::size_t last = *state_.session.indexOf(moved.back());
    std::size_t place = 0;
    switch (move) {
    case Move::Earlier:
        place = first > 0 ? first - 1 : 0;
        break;
    case Move::Later:
        place = std::min(last + 2, state_.session.photos().size());
        break;
    case Move::ToStart:
        place = 0;
        break;
    case Move::ToEnd:
        place = DocumentSession::kAtEnd;
        break;
    }
    state_.session.movePhotos(moved, place);
    if (const auto index = state_.session.indexOf(moved.front()))
        scrollTo(*index);
    focusWhenShown(moved.front());
}

void PhotoGrid::scrollTo(std::size_t index)
{
    gtk_widget_activate_action(GTK_WIDGET(grid_->gobj()), "list.scroll-to-item", "u", static_cast<guint>(index));
}

void PhotoGrid::focusWhenShown(PhotoID photo)
{
    // The list makes its rows when it is laid out next.
    focusing_.disconnect();
    focusing_ = Glib::signal_timeout().connect(
        [this, photo] {
            for (PhotoCell* cell : cells_)
                if (cell->photo() == photo && cell->get_parent())
                    cell->get_parent()->grab_focus();
            return false;
        },
        50);
}

void PhotoGrid::grabFocus()
{
    grid_->grab_focus();
}

void PhotoGrid::scheduleView()
{
    if (isViewScheduled_)
        return;
    isViewScheduled_ = true;
    viewing_ = Glib::signal_idle().connect([this] {
        isViewScheduled_ = false;
        fitColumns();
        tellView();
        return false;
    });
}

/// The list makes rows of as many photos as it may have columns, not as it has: of 30 columns nine hundred.
void PhotoGrid::fitColumns()
{
    if (cells_.empty() || scroll_->get_width() <= 0)
        return;
    int minimum = 0;
    int natural = 0;
    int ignored = 0;
    (*cells_.begin())->get_parent()->measure(Gtk::Orientation::HORIZONTAL, -1, minimum, natural, ignored, ignored);
    const int columns = (scroll_->get_width() + natural - 1) / natural;
    if (static_cast<int>(grid_->get_max_columns()) != columns)
        grid_->set_max_columns(static_cast<guint>(columns));
}

void PhotoGrid::tellView()
{
    std::size_t first = state_.session.photos().size();
    std::size_t end = 0;
    const double height = scroll_->get_height();
    for (PhotoCell* cell : cells_) {
        const graphene_rect_t bounds = boundsOf(*cell, *scroll_);
        if (!cell->get_mapped() || bounds.origin.y + bounds.size.height < 0 || bounds.origin.y > height)
            continue;
        first = std::min(first, cell->index());
        end = std::max(end, cell->index() + 1);
    }
    if (first < end)
        state_.setView(first, end);
}

void PhotoGrid::setUpDragging(PhotoCell& cell)
{
    auto source = Gtk::DragSource::create();
    source->set_actions(Gdk::DragAction::MOVE | Gdk::DragAction::COPY);
    source->signal_prepare().connect([this, &cell](double, double) { return contentOf(cell); }, false);
    // Without the reference that the source would hold to itself.
    auto* raw = source.get();
    source->signal_drag_begin().connect([this, &cell, raw](const auto&) {
        isDragging_ = true;
        if (const auto texture = textureOf(state_.thumbnails.thumbnail(*cell.photo())))
            raw->set_icon(texture, texture->get_width() / 2, texture->get_height() / 2);
    });
    source->signal_drag_end().connect([this](const auto&, bool) {
        isDragging_ = false;
        hideLanding();
    });
    cell.add_controller(source);
}

Glib::RefPtr<Gdk::ContentProvider> PhotoGrid::contentOf(PhotoCell& cell)
{
    if (!cell.photo())
        return {};
    if (!state_.selection.contains(*cell.photo()))
        state_.selection.select(*cell.photo());
    std::vector<GFile*> files;
    for (const PhotoID photo : state_.selection.photos())
        files.push_back(g_file_new_for_path(state_.session.photo(photo).path.c_str()));
    GdkFileList* list = gdk_file_list_new_from_array(files.data(), files.size());
    GdkContentProvider* provider = gdk_content_provider_new_typed(GDK_TYPE_FILE_LIST, list);
    g_boxed_free(GDK_TYPE_FILE_LIST, list);
    for (GFile* file : files)
        g_object_unref(file);
    return Glib::wrap(provider);
}

std::optional<PhotoGrid::Landing> PhotoGrid::landingAt(double x, double y) const
{
    const bool isReversed = grid_->get_direction() == Gtk::TextDirection::RTL;
    std::optional<Landing> landing;
    double nearest = 0;
    for (PhotoCell* cell : cells_) {
        Gtk::Widget* row = cell->get_parent();
        if (!row || !row->get_mapped())
            continue;
        const graphene_rect_t bounds = boundsOf(*row, *overlay_);
        const double middle = bounds.origin.x + bounds.size.width / 2;
        const double outside =
            std::max({0.0, bounds.origin.y - y, y - static_cast<double>(bounds.origin.y + bounds.size.height)});
        // Rows first: the nearest photo of the row that the pointer is in.
        const double distance = outside * 10000 + std::abs(x - middle);
        if (landing && distance >= nearest)
            continue;
        nearest = distance;
        const bool isRight = x > middle;
        landing = Landing{cell->index() + (isRight != isReversed ? 1 : 0),
                          bounds.origin.x + (isRight ? bounds.size.width : 0), bounds.origin.y, bounds.size.height};
    }
    return landing;
}

void PhotoGrid::showLanding(double x, double y)
{
    const auto landing = landingAt(x, y);
    landingPlace_ = landing ? landing->place : DocumentSession::kAtEnd;
    mark_->set_visible(landing.has_value());
    if (landing) {
        const double start = overlay_->get_direction() == Gtk::TextDirection::RTL
                                 ? overlay_->get_width() - landing->x - kMarkWidth / 2.0
                                 : landing->x - kMarkWidth / 2.0;
        mark_->set_margin_start(std::max(0, static_cast<int>(start)));
        mark_->set_margin_top(std::max(0, static_cast<int>(landing->y)));
        mark_->set_size_request(kMarkWidth, static_cast<int>(landing->height));
    }
    dragY_ = y;
    if (!scrolling_)
        scrolling_ = Glib::signal_timeout().connect(
            [this] {
                scrollWhileDragging();
                return true;
            },
            30);
}

void PhotoGrid::scrollWhileDragging()
{
    const auto adjustment = scroll_->get_vadjustment();
    const double below = dragY_ - (overlay_->get_height() - kScrollingEdge);
    if (dragY_ < kScrollingEdge)
        adjustment->set_value(adjustment->get_value() - (kScrollingEdge - dragY_) / 2);
    else if (below > 0)
        adjustment->set_value(adjustment->get_value() + below / 2);
}

void PhotoGrid::hideLanding()
{
    scrolling_.disconnect();
    mark_->set_visible(false);
}

void PhotoGrid::landDragged()
{
    const std::vector<PhotoID> moved = state_.selection.photos();
    state_.session.movePhotos(moved, landingPlace_);
    if (!moved.empty())
        focusWhenShown(moved.front());
}

} // namespace stillora::window
