#pragma once

#include "window/MainWindow.h"
#include "window/state/WindowState.h"
#include "window/toolkit/GLibMainLoop.h"
#include "window/toolkit/RememberedState.h"

#include <memory>

#include <gtk/gtk.h>
#include <gtkmm/application.h>

namespace stillora::window {

/// The program: one process and one window for each user, however often it is started.
class WindowApplication final : public Gtk::Application {
public:
    static Glib::RefPtr<WindowApplication> create();

protected:
    WindowApplication();

    void on_startup() override;
    void on_activate() override;
    void on_open(const type_vec_files& files, const Glib::ustring& hint) override;
    void on_shutdown() override;

private:
    void showWindow();
    void quitOnSignals();
    void watchPower();
    void showAbout();

    GLibMainLoop loop_;
    const WindowFolders folders_ = WindowFolders::usual();
    RememberedState remembered_{folders_.state};
    std::unique_ptr<WindowState> state_;
    GPowerProfileMonitor* power_ = nullptr;
    std::unique_ptr<MainWindow> window_;
};

} // namespace stillora::window
