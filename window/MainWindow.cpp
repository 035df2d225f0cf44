#include "window/MainWindow.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Accessibility.h"

#include <array>
#include <utility>

#include <gdkmm/clipboard.h>
#include <giomm/appinfo.h>
#include <giomm/file.h>
#include <giomm/notification.h>
#include <glibmm/markup.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/revealer.h>
#include <gtkmm/shortcutswindow.h>
#include <gtkmm/stack.h>

namespace stillora::window {

namespace {

constexpr std::size_t kMostToasts = 3;
constexpr const char* kNotification = "movie";

std::vector<std::filesystem::path> pathsOf(GSList* files)
{
    std::vector<std::filesystem::path> paths;
    for (GSList* each = files; each; each = each->next)
        // Files elsewhere than in the file system have no path.
        if (char* path = g_file_get_path(G_FILE(each->data))) {
            paths.emplace_back(path);
            g_free(path);
        }
    return paths;
}

std::vector<std::filesystem::path> pathsOf(GdkFileList* list)
{
    GSList* files = gdk_file_list_get_files(list);
    const auto paths = pathsOf(files);
    g_slist_free(files);
    return paths;
}

struct Shortcut {
    const char* action;
    const char* keys;
};

constexpr std::array kShortcuts{
    Shortcut{"win.add-photos", "<Control>o"},
    Shortcut{"win.add-folder", "<Control><Shift>o"},
    Shortcut{"win.add-music", "<Control>m"},
    Shortcut{"win.make", "<Control>Return"},
    Shortcut{"win.play", "<Control>space"},
    Shortcut{"win.new", "<Control>n"},
    Shortcut{"win.open", "<Control><Alt>o"},
    Shortcut{"win.save-as", "<Control><Shift>s"},
    Shortcut{"win.undo", "<Control>z"},
    Shortcut{"win.redo", "<Control><Shift>z"},
    Shortcut{"win.move-earlier", "<Alt>Left"},
    Shortcut{"win.move-later", "<Alt>Right"},
    Shortcut{"win.move-to-start", "<Alt>Home"},
    Shortcut{"win.move-to-end", "<Alt>End"},
    Shortcut{"win.show-help-overlay", "<Control>question"},
    Shortcut{"win.close", "<Control>w"},
};

} // namespace

MainWindow::MainWindow(Gtk::Application& application, WindowState& state, RememberedState& remembered)
    : state_(state), remembered_(remembered),
      builder_(Gtk::Builder::create_from_resource("/app/stillora/Stillora/window.ui")),
      window_(builder_->get_widget<Gtk::ApplicationWindow>("window")), application_(application),
      toasts_(ADW_TOAST_OVERLAY(gtk_builder_get_object(builder_->gobj(), "toasts"))),
      title_(ADW_WINDOW_TITLE(gtk_builder_get_object(builder_->gobj(), "title"))), grid_(builder_, state),
      frame_(builder_, state), music_(builder_, state), settings_(builder_, state), makingBar_(builder_, state),
      recent_(std::dynamic_pointer_cast<Gio::Menu>(builder_->get_object("recent-menu")))
{
    application.add_window(*window_);
    window_->set_icon_name("app.stillora.Stillora");
    if (remembered_.values.width > 0 && remembered_.values.height > 0)
        window_->set_default_size(remembered_.values.width, remembered_.values.height);
    if (remembered_.values.isMaximized)
        window_->maximize();
    const auto keys = Gtk::Builder::create_from_resource("/app/stillora/Stillora/gtk/help-overlay.ui");
    gtk_application_window_set_help_overlay(window_->gobj(),
                                            GTK_SHORTCUTS_WINDOW(gtk_builder_get_object(keys->gobj(), "help_overlay")));
    setUpActions();
    setUpConflict();
    setUpDropping();
    window_->signal_close_request().connect([this] { return closeRequested(); }, false);
    window_->property_is_active().signal_changed().connect([this] {
        if (window_->is_active())
            state_.session.lookAgain();
    });
    frame_.playingChanged = [this](std::optional<PhotoID> photo) { grid_.setPlaying(photo); };
    frame_.playingFailed = [this](const std::string& reason) { say(reason); };

    connections_.push_back(state_.session.changed.connect([this] { showPage(); }));
    connections_.push_back(state_.session.statusChanged.connect([this] {
        showTitle();
        enableActions();
    }));
    connections_.push_back(state_.session.opened.connect([this] {
        showPage();
        showTitle();
        enableActions();
        showRecent();
        takeUpDocument();
    }));
    connections_.push_back(state_.session.photosAdded.connect([this](const std::vector<PhotoID>& photos) {
        if (!photos.empty() && !state_.selection.current())
            state_.selection.select(photos.front());
    }));
    connections_.push_back(
        state_.session.failed.connect([this](const std::vector<Error>& errors) { sayFailures(errors); }));
    connections_.push_back(state_.session.conflictChanged.connect([this] { showConflict(); }));
    connections_.push_back(state_.selection.changed.connect([this] { enableActions(); }));
    connections_.push_back(state_.outlook.changed.connect([this] {
        enableActions();
        showTitle();
    }));
    connections_.push_back(state_.making.changed.connect([this] { makingChanged(); }));
    showPage();
    showTitle();
    enableActions();
    showRecent();
    nameButtonsOnce(GTK_WIDGET(window_->gobj()));
}

MainWindow::~MainWindow()
{
    connections_.clear();
    frame_.playingChanged = {};
    frame_.stopPlaying();
    makeDialog_.reset();
    // The widgets go while those still live whom they tell of it.
    window_.reset();
    builder_.reset();
}

void MainWindow::present()
{
    window_->present();
}

void MainWindow::addAction(const char* name, const std::function<void()>& run)
{
    window_->add_action(name, [run] { run(); });
}

void MainWindow::setUpActions()
{
    addAction("add-photos", [this] {
        chooseFiles(localized("Add Photos"), Gtk::FileChooser::Action::OPEN, remembered_.values.photoFolder,
                    [this](const Paths& files) { take(files); });
    });
    addAction("add-folder", [this] {
        chooseFiles(localized("Add a Folder"), Gtk::FileChooser::Action::SELECT_FOLDER, remembered_.values.photoFolder,
                    [this](const Paths& files) { take(files); });
    });
    addAction("add-music", [this] {
        chooseFiles(localized("Add Music"), Gtk::FileChooser::Action::OPEN, remembered_.values.musicFolder,
                    [this](const Paths& files) { take(files); });
    });
    addAction("new", [this] { state_.session.startNew(); });
    addAction("open", [this] { chooseDocument(); });
    addAction("save-as", [this] { saveAs(); });
    addAction("undo", [this] { undo(); });
    addAction("redo", [this] { redo(); });
    addAction("remove", [this] { state_.session.removePhotos(state_.selection.photos()); });
    addAction("remove-bad", [this] { state_.photos.removeUnusable(); });
    addAction("sort-by-name", [this] { state_.photos.sort(PhotoSort::ByName); });
    addAction("sort-by-date", [this] { state_.photos.sort(PhotoSort::ByDate); });
    addAction("reverse", [this] { state_.session.reversePhotos(); });
    addAction("shuffle", [this] { state_.session.shufflePhotos(); });
    addAction("move-earlier", [this] { grid_.moveSelected(PhotoGrid::Move::Earlier); });
    addAction("move-later", [this] { grid_.moveSelected(PhotoGrid::Move::Later); });
    addAction("move-to-start", [this] { grid_.moveSelected(PhotoGrid::Move::ToStart); });
    addAction("move-to-end", [this] { grid_.moveSelected(PhotoGrid::Move::ToEnd); });
    addAction("play", [this] { frame_.togglePlaying(); });
    addAction("make", [this] { make(); });
    addAction("cancel-making", [this] { state_.making.cancel(); });
    addAction("close-making", [this] { state_.making.dismiss(); });
    addAction("play-movie", [this] { playMovie(); });
    addAction("show-movie", [this] { showMovie(); });
    addAction("close", [this] { window_->close(); });
    window_->add_action_with_parameter("open-recent", Glib::VARIANT_TYPE_INT32, [this](const Glib::VariantBase& value) {
        const auto index =
            static_cast<std::size_t>(Glib::VariantBase::cast_dynamic<Glib::Variant<gint32>>(value).get());
        if (index < recentPlaces_.size())
            state_.session.open(recentPlaces_[index]);
    });
    for (const Shortcut& shortcut : kShortcuts)
        application_.set_accel_for_action(shortcut.action, shortcut.keys);
    // A key of entries too, which take it first: the window gets what nobody else wants.
    auto* controller = gtk_shortcut_controller_new();
    const auto add = [controller](const char* keys, void (*run)(MainWindow&), MainWindow* window) {
        struct Order {
            void (*run)(MainWindow&);
            MainWindow* window;
        };
        auto* action = gtk_callback_action_new(
            [](GtkWidget*, GVariant*, void* data) -> gboolean {
                const auto* order = static_cast<Order*>(data);
                order->run(*order->window);
                return TRUE;
            },
            new Order{run, window}, [](void* data) { delete static_cast<Order*>(data); });
        gtk_shortcut_controller_add_shortcut(GTK_SHORTCUT_CONTROLLER(controller),
                                             gtk_shortcut_new(gtk_shortcut_trigger_parse_string(keys), action));
    };
    add(
        "<Control>v", [](MainWindow& window) { window.paste(); }, this);
    add(
        "Delete", [](MainWindow& window) { window.window_->activate_action("win.remove"); }, this);
    gtk_widget_add_controller(GTK_WIDGET(window_->gobj()), controller);
}

void MainWindow::undo()
{
    if (state_.session.canUndo())
        state_.session.undo();
}

void MainWindow::redo()
{
    if (state_.session.canRedo())
        state_.session.redo();
}

void MainWindow::setUpConflict()
{
    builder_->get_widget<Gtk::Button>("keep-mine")->signal_clicked().connect([this] { state_.session.keepMine(); });
    builder_->get_widget<Gtk::Button>("take-theirs")->signal_clicked().connect([this] { state_.session.takeTheirs(); });
    builder_->get_widget<Gtk::Button>("keep-both")->signal_clicked().connect([this] {
        state_.session.saveMineBeside();
    });
    showConflict();
}

void MainWindow::setUpDropping()
{
    auto grid = Gtk::DropTarget::create(GDK_TYPE_FILE_LIST, Gdk::DragAction::COPY | Gdk::DragAction::MOVE);
    const auto mark = [this](double x, double y) {
        grid_.showLanding(x, y);
        return grid_.isDragging() ? Gdk::DragAction::MOVE : Gdk::DragAction::COPY;
    };
    grid->signal_enter().connect(mark, false);
    grid->signal_motion().connect(mark, false);
    grid->signal_leave().connect([this] { grid_.hideLanding(); });
    grid->signal_drop().connect(
        [this](const Glib::ValueBase& value, double x, double y) {
            grid_.showLanding(x, y);
            grid_.hideLanding();
            return drop(value, true);
        },
        false);
    builder_->get_widget<Gtk::Widget>("grid-overlay")->add_controller(grid);

    auto anywhere = Gtk::DropTarget::create(GDK_TYPE_FILE_LIST, Gdk::DragAction::COPY);
    anywhere->signal_drop().connect([this](const Glib::ValueBase& value, double, double) { return drop(value, false); },
                                    false);
    builder_->get_widget<Gtk::Widget>("surface")->add_controller(anywhere);
}

bool MainWindow::drop(const Glib::ValueBase& value, bool isAtMark)
{
    if (grid_.isDragging()) {
        if (isAtMark)
            grid_.landDragged();
        return isAtMark;
    }
    const auto files = pathsOf(static_cast<GdkFileList*>(g_value_get_boxed(value.gobj())));
    if (files.size() == 1 && DocumentSession::isDocument(files.front()))
        state_.session.open(files.front());
    else if (!files.empty())
        state_.session.add(files, isAtMark ? grid_.landingPlace() : DocumentSession::kAtEnd);
    return !files.empty();
}

void MainWindow::take(const Paths& files)
{
    if (files.size() == 1 && DocumentSession::isDocument(files.front()))
        state_.session.open(files.front());
    else if (!files.empty())
        state_.session.add(files);
}

void MainWindow::paste()
{
    struct Asked {
        std::weak_ptr<bool> isAlive;
        MainWindow* window;
    };
    gdk_clipboard_read_value_async(
        gtk_widget_get_clipboard(GTK_WIDGET(window_->gobj())), GDK_TYPE_FILE_LIST, G_PRIORITY_DEFAULT, nullptr,
        [](GObject* clipboard, GAsyncResult* result, void* data) {
            const std::unique_ptr<Asked> asked(static_cast<Asked*>(data));
            // Anything else than files has nothing to say here.
            const GValue* value = gdk_clipboard_read_value_finish(GDK_CLIPBOARD(clipboard), result, nullptr);
            if (value && !asked->isAlive.expired())
                asked->window->take(pathsOf(static_cast<GdkFileList*>(g_value_get_boxed(value))));
        },
        new Asked{isAlive_, this});
}

void MainWindow::showPage()
{
    auto* empty = builder_->get_widget<Gtk::Widget>("invitation");
    auto* work = builder_->get_widget<Gtk::Widget>("work");
    auto* shown = state_.session.isEmpty() ? empty : work;
    // What a stack does not show is read out all the same.
    shown->set_visible(true);
    builder_->get_widget<Gtk::Stack>("pages")->set_visible_child(*shown);
    (shown == empty ? work : empty)->set_visible(false);
}

void MainWindow::takeUpDocument()
{
    if (const auto& photos = state_.session.photos(); !photos.empty() && !state_.selection.current())
        state_.selection.select(photos.front());
    // The menu that it was chosen from had the focus, and is made anew: keys would go nowhere.
    if (state_.session.isEmpty())
        builder_->get_widget<Gtk::Widget>("invite-photos")->grab_focus();
    else
        grid_.grabFocus();
}

void MainWindow::showTitle()
{
    const std::string name = state_.session.name();
    adw_window_title_set_title(title_, name.c_str());
    adw_window_title_set_subtitle(title_, state_.session.isEmpty() ? "" : state_.outlook.lengthText().c_str());
    window_->set_title(localized("{} – Stillora", name));
}

void MainWindow::showConflict()
{
    builder_->get_widget<Gtk::Label>("conflict-text")
        ->set_text(localized("Another program has changed {}. What should it be from now on?",
                             state_.session.location() ? state_.session.location()->filename().string()
                                                       : state_.session.name()));
    // Hidden, too, as what is not revealed would be read out.
    auto* conflict = builder_->get_widget<Gtk::Revealer>("conflict");
    conflict->set_visible(state_.session.isInConflict());
    conflict->set_reveal_child(state_.session.isInConflict());
}

void MainWindow::enableActions()
{
    const auto enable = [this](const char* name, bool isEnabled) {
        std::dynamic_pointer_cast<Gio::SimpleAction>(window_->lookup_action(name))->set_enabled(isEnabled);
    };
    const bool isAnySelected = state_.selection.size() > 0;
    const std::size_t photos = state_.session.photos().size();
    for (const char* name : {"remove", "move-earlier", "move-later", "move-to-start", "move-to-end"})
        enable(name, isAnySelected);
    for (const char* name : {"sort-by-name", "sort-by-date", "reverse", "shuffle"})
        enable(name, photos > 1);
    enable("undo", state_.session.canUndo());
    enable("redo", state_.session.canRedo());
    enable("save-as", !state_.session.isEmpty());
    enable("play", state_.outlook.canBeMade());
    enable("make", state_.outlook.canBeMade() && !state_.making.isGoingOn());
    const auto tell = [this](const char* button, const std::string& text) {
        auto* widget = builder_->get_widget<Gtk::Widget>(button);
        widget->set_tooltip_text(text);
        setAccessibleName(*widget, text);
    };
    tell("undo-button",
         state_.session.canUndo() ? localized("Undo: {}", state_.session.undoLabel()) : localized("Undo"));
    tell("redo-button",
         state_.session.canRedo() ? localized("Redo: {}", state_.session.redoLabel()) : localized("Redo"));
    const std::size_t bad = state_.photos.unusable().size();
    auto* removeBad = builder_->get_widget<Gtk::Button>("remove-bad");
    enable("remove-bad", bad > 0);
    removeBad->set_visible(bad > 0);
    removeBad->set_label(localizedCount(bad, "Remove {} Unusable Photo", "Remove {} Unusable Photos"));
}

void MainWindow::say(const std::string& text)
{
    AdwToast* toast = adw_toast_new(Glib::Markup::escape_text(text).c_str());
    adw_toast_set_timeout(toast, 8);
    adw_toast_overlay_add_toast(toasts_, toast);
}

void MainWindow::sayFailures(const std::vector<Error>& errors)
{
    for (std::size_t i = 0; i < errors.size() && i < kMostToasts; ++i)
        say(errors[i].message);
    if (errors.size() > kMostToasts)
        say(localizedCount(errors.size() - kMostToasts, "{} more file could not be used",
                           "{} more files could not be used"));
}

void MainWindow::chooseFiles(const std::string& title, Gtk::FileChooser::Action action,
                             std::optional<std::filesystem::path>& folder, std::function<void(const Paths&)> chosen)
{
    chooser_ = Gtk::FileChooserNative::create(title, *window_, action, localized("_Add"), localized("_Cancel"));
    chooser_->set_modal(true);
    chooser_->set_select_multiple(true);
    if (folder && std::filesystem::is_directory(*folder))
        chooser_->set_current_folder(Gio::File::create_for_path(folder->string()));
    chooser_->signal_response().connect([this, &folder, chosen = std::move(chosen)](int response) {
        if (response != GTK_RESPONSE_ACCEPT)
            return;
        Paths files;
        const auto list = chooser_->get_files();
        for (guint i = 0; i < list->get_n_items(); ++i)
            if (const auto file = std::dynamic_pointer_cast<Gio::File>(list->get_object(i)); !file->get_path().empty())
                files.emplace_back(file->get_path());
        if (files.empty())
            return;
        folder = files.front().parent_path();
        remembered_.save();
        chosen(files);
    });
    chooser_->show();
}

void MainWindow::chooseDocument()
{
    chooser_ =
        Gtk::FileChooserNative::create(localized("Open a Document"), *window_, Gtk::FileChooser::Action::SELECT_FOLDER,
                                       localized("_Open"), localized("_Cancel"));
    chooser_->set_modal(true);
    chooser_->signal_response().connect([this](int response) {
        if (response == GTK_RESPONSE_ACCEPT && chooser_->get_file())
            state_.session.open(chooser_->get_file()->get_path());
    });
    chooser_->show();
}

void MainWindow::saveAs()
{
    chooser_ = Gtk::FileChooserNative::create(localized("Save As"), *window_, Gtk::FileChooser::Action::SAVE,
                                              localized("_Save"), localized("_Cancel"));
    chooser_->set_modal(true);
    chooser_->set_current_name(MovieMaking::proposedTitle(state_.session, state_.outlook) + ".stillora");
    chooser_->signal_response().connect([this](int response) {
        if (response == GTK_RESPONSE_ACCEPT && chooser_->get_file())
            state_.session.saveAs(chooser_->get_file()->get_path());
    });
    chooser_->show();
}

void MainWindow::showRecent()
{
    state_.session.findRecent([this, alive = std::weak_ptr(isAlive_)](std::vector<DocumentSession::Recent> found) {
        if (alive.expired())
            return;
        recent_->remove_all();
        recentPlaces_.clear();
        for (const DocumentSession::Recent& recent : found) {
            auto item = Gio::MenuItem::create(recent.name, Glib::ustring());
            item->set_action_and_target("win.open-recent",
                                        Glib::Variant<gint32>::create(static_cast<gint32>(recentPlaces_.size())));
            recent_->append_item(item);
            recentPlaces_.push_back(recent.location);
        }
    });
}

void MainWindow::make()
{
    const auto folder = remembered_.values.movieFolder.value_or(usualSaveFolder());
    makeDialog_ =
        std::make_unique<MakeDialog>(*window_, MovieMaking::proposedTitle(state_.session, state_.outlook), folder,
                                     [this](const std::string& title, const std::filesystem::path& chosen) {
                                         if (chosen != usualSaveFolder() || remembered_.values.movieFolder) {
                                             remembered_.values.movieFolder = chosen;
                                             remembered_.save();
                                         }
                                         application_.withdraw_notification(kNotification);
                                         if (state_.outlook.canBeMade())
                                             state_.making.start(title, chosen);
                                     });
    makeDialog_->present();
}

void MainWindow::makingChanged()
{
    enableActions();
    const MovieMaking::State now = state_.making.state();
    if (std::exchange(lastMaking_, now) == now || window_->is_active())
        return;
    if (now != MovieMaking::State::Made && now != MovieMaking::State::Failed)
        return;
    const bool isMade = now == MovieMaking::State::Made;
    auto notification =
        Gio::Notification::create(isMade ? localized("Your movie is ready") : localized("No movie was made"));
    notification->set_body(isMade ? state_.making.path().filename().string() : state_.making.error().message);
    application_.send_notification(kNotification, notification);
}

void MainWindow::playMovie()
{
    const auto movie = state_.making.path();
    try {
        if (Gio::AppInfo::launch_default_for_uri(Gio::File::create_for_path(movie.string())->get_uri()))
            return;
    } catch (const Glib::Error&) {
    }
    // No application of the desktop plays it: the window does.
    frame_.play(movie);
}

void MainWindow::showMovie()
{
    const auto movie = Gio::File::create_for_path(state_.making.path().string());
    const std::string address = movie->get_uri();
    const char* addresses[] = {address.c_str(), nullptr};
    struct Asked {
        std::string folder;
    };
    g_dbus_connection_call(
        g_application_get_dbus_connection(G_APPLICATION(application_.gobj())), "org.freedesktop.FileManager1",
        "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1", "ShowItems",
        g_variant_new("(^ass)", addresses, ""), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        [](GObject* connection, GAsyncResult* result, void* data) {
            const std::unique_ptr<Asked> asked(static_cast<Asked*>(data));
            GVariant* answer = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr);
            if (answer)
                g_variant_unref(answer);
            else
                g_app_info_launch_default_for_uri_async(asked->folder.c_str(), nullptr, nullptr, nullptr, nullptr);
        },
        new Asked{movie->get_parent()->get_uri()});
}

bool MainWindow::closeRequested()
{
    rememberSize();
    if (!state_.making.isGoingOn() || isClosing_)
        return false;
    askAboutClosing();
    return true;
}

void MainWindow::askAboutClosing()
{
    GtkWidget* dialog = adw_message_dialog_new(GTK_WINDOW(window_->gobj()), localized("Stop Making the Movie?").c_str(),
                                               localized("The movie is not ready yet. If the window closes now, there "
                                                         "will be none.")
                                                   .c_str());
    adw_message_dialog_add_response(ADW_MESSAGE_DIALOG(dialog), "stay", localized("_Go On").c_str());
    adw_message_dialog_add_response(ADW_MESSAGE_DIALOG(dialog), "close", localized("_Stop and Close").c_str());
    adw_message_dialog_set_response_appearance(ADW_MESSAGE_DIALOG(dialog), "close", ADW_RESPONSE_DESTRUCTIVE);
    adw_message_dialog_set_close_response(ADW_MESSAGE_DIALOG(dialog), "stay");
    g_signal_connect(dialog, "response", G_CALLBACK(+[](AdwMessageDialog*, const char* response, MainWindow* window) {
                         if (g_strcmp0(response, "close") != 0)
                             return;
                         window->isClosing_ = true;
                         window->window_->close();
                     }),
                     this);
    gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
    nameButtonsOnce(dialog);
    gtk_window_present(GTK_WINDOW(dialog));
}

void MainWindow::rememberSize()
{
    remembered_.values.isMaximized = window_->is_maximized();
    if (!window_->is_maximized())
        window_->get_default_size(remembered_.values.width, remembered_.values.height);
    remembered_.save();
}

} // namespace stillora::window
