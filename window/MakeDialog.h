#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include <adwaita.h>
#include <gtkmm/builder.h>
#include <gtkmm/filechoosernative.h>
#include <gtkmm/label.h>
#include <gtkmm/window.h>

namespace stillora::window {

/// Asks for a movie's name and folder. Lives as long as its window is open.
class MakeDialog final {
public:
    using Chosen = std::function<void(const std::string& title, const std::filesystem::path& folder)>;

    /// @param chosen  called where the movie is to be made
    MakeDialog(Gtk::Window& parent, const std::string& title, std::filesystem::path folder, Chosen chosen);
    ~MakeDialog();
    MakeDialog(const MakeDialog&) = delete;
    MakeDialog& operator=(const MakeDialog&) = delete;

    void present();

private:
    void chooseFolder();
    void showFolder();
    void showFault();
    std::string title() const;

    const Glib::RefPtr<Gtk::Builder> builder_;
    AdwMessageDialog* const dialog_;
    GtkEditable* const name_;
    AdwActionRow* const folderRow_;
    Gtk::Label* const fault_;
    Gtk::Window& parent_;
    std::filesystem::path folder_;
    const Chosen chosen_;
    Glib::RefPtr<Gtk::FileChooserNative> chooser_;
};

} // namespace stillora::window
