#pragma once

#include "window/FrameView.h"
#include "window/MakeDialog.h"
#include "window/MakingBar.h"
#include "window/SettingsPane.h"
#include "window/music/MusicPane.h"
#include "window/photos/PhotoGrid.h"
#include "window/state/WindowState.h"
#include "window/toolkit/RememberedState.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <adwaita.h>
#include <giomm/menu.h>
#include <giomm/simpleaction.h>
#include <gtkmm/application.h>
#include <gtkmm/applicationwindow.h>
#include <gtkmm/builder.h>
#include <gtkmm/droptarget.h>
#include <gtkmm/filechoosernative.h>

namespace stillora::window {

/// The one window: shows the state and sends it orders.
class MainWindow final {
public:
    /// @param state       outlives the window
    /// @param remembered  outlives the window
    MainWindow(Gtk::Application& application, WindowState& state, RememberedState& remembered);
    ~MainWindow();
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    /// Takes what was named at the start, dropped or pasted: a document is opened, all else added.
    void take(const std::vector<std::filesystem::path>& files);
    void present();
    Gtk::ApplicationWindow& widget() { return *window_; }

private:
    using Paths = std::vector<std::filesystem::path>;

    void setUpActions();
    void addAction(const char* name, const std::function<void()>& run);
    void setUpConflict();
    void setUpDropping();
    bool drop(const Glib::ValueBase& value, bool isAtMark);
    void paste();
    void showPage();
    void takeUpDocument();
    void showTitle();
    void showConflict();
    void enableActions();
    void say(const std::string& text);
    void sayFailures(const std::vector<Error>& errors);
    void undo();
    void redo();

    void chooseFiles(const std::string& title, Gtk::FileChooser::Action action,
                     std::optional<std::filesystem::path>& folder, std::function<void(const Paths&)> chosen);
    void chooseDocument();
    void saveAs();
    void showRecent();

    void make();
    void makingChanged();
    void playMovie();
    void showMovie();

    /// @return whether the window stays
    bool closeRequested();
    void askAboutClosing();
    void rememberSize();

    WindowState& state_;
    RememberedState& remembered_;
    Glib::RefPtr<Gtk::Builder> builder_;
    std::unique_ptr<Gtk::ApplicationWindow> window_;
    Gtk::Application& application_;
    AdwToastOverlay* const toasts_;
    AdwWindowTitle* const title_;
    PhotoGrid grid_;
    FrameView frame_;
    MusicPane music_;
    SettingsPane settings_;
    MakingBar makingBar_;
    std::unique_ptr<MakeDialog> makeDialog_;
    Glib::RefPtr<Gtk::FileChooserNative> chooser_;
    Glib::RefPtr<Gio::Menu> recent_;
    std::vector<std::filesystem::path> recentPlaces_;
    MovieMaking::State lastMaking_ = MovieMaking::State::Idle;
    bool isClosing_ = false;
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    std::vector<Connection> connections_;
};

} // namespace stillora::window
