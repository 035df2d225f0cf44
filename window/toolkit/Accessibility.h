#pragma once

#include <string>

#include <gtk/gtk.h>
#include <gtkmm/widget.h>

namespace stillora::window {

/// Gives a control the name by which it is read out.
void setAccessibleName(Gtk::Widget& widget, const std::string& name);
/// Tells more than the name.
void setAccessibleDescription(Gtk::Widget& widget, const std::string& description);
/// Has each button in a widget called by its label alone. The toolkit reads out the label twice, the first time with
/// the underscore of its mnemonic.
void nameButtonsOnce(GtkWidget* root);
/// Gives the controls of a player, which have pictures alone, their names.
void nameMediaControls(GtkWidget* controls);

} // namespace stillora::window
