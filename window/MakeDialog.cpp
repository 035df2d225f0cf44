#include "window/MakeDialog.h"

#include "client/text/LocalizedText.h"
#include "window/state/MovieMaking.h"
#include "window/toolkit/Accessibility.h"

#include <utility>

#include <giomm/file.h>
#include <glibmm/markup.h>
#include <gtkmm/button.h>

namespace stillora::window {

namespace {

template <typename Widget>
Widget* widgetOf(const Glib::RefPtr<Gtk::Builder>& builder, const char* name)
{
    return reinterpret_cast<Widget*>(gtk_builder_get_object(builder->gobj(), name));
}

} // namespace

MakeDialog::MakeDialog(Gtk::Window& parent, const std::string& title, std::filesystem::path folder, Chosen chosen)
    : builder_(Gtk::Builder::create_from_resource("/app/stillora/Stillora/make-dialog.ui")),
      dialog_(widgetOf<AdwMessageDialog>(builder_, "dialog")), name_(widgetOf<GtkEditable>(builder_, "name")),
      folderRow_(widgetOf<AdwActionRow>(builder_, "folder")), fault_(builder_->get_widget<Gtk::Label>("fault")),
      parent_(parent), folder_(std::move(folder)), chosen_(std::move(chosen))
{
    g_object_ref(dialog_);
    gtk_window_set_transient_for(GTK_WINDOW(dialog_), parent.gobj());
    gtk_window_set_modal(GTK_WINDOW(dialog_), TRUE);
    gtk_editable_set_text(name_, title.c_str());
    g_signal_connect_swapped(name_, "changed", G_CALLBACK(+[](MakeDialog* dialog) { dialog->showFault(); }), this);
    builder_->get_widget<Gtk::Button>("choose")->signal_clicked().connect([this] { chooseFolder(); });
    g_signal_connect(dialog_, "response", G_CALLBACK(+[](AdwMessageDialog*, const char* response, MakeDialog* dialog) {
                         if (g_strcmp0(response, "make") == 0)
                             dialog->chosen_(dialog->title(), dialog->folder_);
                     }),
                     this);
    showFolder();
    showFault();
    nameButtonsOnce(GTK_WIDGET(dialog_));
}

MakeDialog::~MakeDialog()
{
    g_signal_handlers_disconnect_by_data(name_, this);
    g_signal_handlers_disconnect_by_data(dialog_, this);
    gtk_window_destroy(GTK_WINDOW(dialog_));
    g_object_unref(dialog_);
}

void MakeDialog::present()
{
    gtk_window_present(GTK_WINDOW(dialog_));
    gtk_widget_grab_focus(GTK_WIDGET(name_));
}

std::string MakeDialog::title() const
{
    return gtk_editable_get_text(name_);
}

void MakeDialog::showFolder()
{
    adw_action_row_set_subtitle(folderRow_, Glib::Markup::escape_text(folder_.string()).c_str());
}

void MakeDialog::showFault()
{
    const std::string fault = MovieMaking::faultOfProposal(title());
    fault_->set_text(fault);
    fault_->set_visible(!fault.empty());
    adw_message_dialog_set_response_enabled(dialog_, "make", fault.empty());
}

void MakeDialog::chooseFolder()
{
    chooser_ = Gtk::FileChooserNative::create(localized("Choose a Folder for the Movie"),
                                              Gtk::FileChooser::Action::SELECT_FOLDER, localized("_Choose"),
                                              localized("_Cancel"));
    gtk_native_dialog_set_transient_for(GTK_NATIVE_DIALOG(chooser_->gobj()), GTK_WINDOW(dialog_));
    chooser_->set_modal(true);
    // One that is not there yet is made with the movie, and cannot be shown.
    if (std::error_code error; std::filesystem::is_directory(folder_, error))
        chooser_->set_current_folder(Gio::File::create_for_path(folder_.string()));
    chooser_->signal_response().connect([this](int response) {
        if (response == GTK_RESPONSE_ACCEPT && chooser_->get_file()) {
            folder_ = chooser_->get_file()->get_path();
            showFolder();
        }
    });
    chooser_->show();
}

} // namespace stillora::window
