#include "window/WindowApplication.h"

#include "client/text/LocalizedText.h"

#include <csignal>
#include <filesystem>
#include <vector>

#include <adwaita.h>
#include <giomm/file.h>
#include <glib-unix.h>
#include <gtkmm/cssprovider.h>
#include <gtkmm/settings.h>
#include <gtkmm/stylecontext.h>

namespace stillora::window {

WindowApplication::WindowApplication() : Gtk::Application("app.stillora.Window", Gio::Application::Flags::HANDLES_OPEN)
{}

Glib::RefPtr<WindowApplication> WindowApplication::create()
{
    return Glib::make_refptr_for_instance<WindowApplication>(new WindowApplication());
}

void WindowApplication::on_startup()
{
    Gtk::Application::on_startup();
    adw_init();
    gtk_window_set_default_icon_name("app.stillora.Stillora");
    auto style = Gtk::CssProvider::create();
    style->load_from_resource("/app/stillora/Stillora/style.css");
    Gtk::StyleContext::add_provider_for_display(Gdk::Display::get_default(), style,
                                                GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    add_action("about", [this] { showAbout(); });
    add_action("quit", [this] {
        if (window_)
            window_->widget().close();
    });
    set_accel_for_action("app.quit", "<Control>q");
    quitOnSignals();
}

/// Who ends a desktop's programs does not wait for an answer: all is kept, and nothing is asked.
void WindowApplication::quitOnSignals()
{
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        g_unix_signal_add(
            signal,
            +[](gpointer application) -> gboolean {
                static_cast<WindowApplication*>(application)->quit();
                return G_SOURCE_CONTINUE;
            },
            this);
}

void WindowApplication::on_shutdown()
{
    if (power_) {
        g_signal_handlers_disconnect_by_data(power_, this);
        g_object_unref(power_);
    }
    window_.reset();
    if (state_)
        state_->finish();
    state_.reset();
    Gtk::Application::on_shutdown();
}

void WindowApplication::showWindow()
{
    if (!window_) {
        state_ = std::make_unique<WindowState>(loop_, folders_);
        watchPower();
        window_ = std::make_unique<MainWindow>(*this, *state_, remembered_);
    }
    window_->present();
}

/// The desktop asks for power to be saved where its owner wants that, and when the battery is low.
void WindowApplication::watchPower()
{
    const auto tell = +[](WindowApplication* application) {
        application->state_->setHasPowerToSpare(!g_power_profile_monitor_get_power_saver_enabled(application->power_));
    };
    power_ = g_power_profile_monitor_dup_default();
    g_signal_connect_swapped(power_, "notify::power-saver-enabled", G_CALLBACK(tell), this);
    tell(this);
}

void WindowApplication::on_activate()
{
    const bool isFirst = !window_;
    showWindow();
    if (isFirst)
        state_->session.resume();
}

void WindowApplication::on_open(const type_vec_files& files, const Glib::ustring&)
{
    showWindow();
    std::vector<std::filesystem::path> paths;
    for (const auto& file : files)
        if (const std::string path = file->get_path(); !path.empty())
            paths.emplace_back(path);
    window_->take(paths);
}

void WindowApplication::showAbout()
{
    adw_show_about_window(GTK_WINDOW(window_->widget().gobj()), "application-name", "Stillora", "application-icon",
                          "app.stillora.Stillora", "version", STILLORA_VERSION, "comments",
                          localized("Turns photos and music into a movie").c_str(), "website", "https://stillora.app",
                          "developer-name", localized("The Stillora developers").c_str(), "license-type",
                          GTK_LICENSE_MIT_X11, nullptr);
}

} // namespace stillora::window
