#include "window/toolkit/Accessibility.h"

#include "client/text/LocalizedText.h"

namespace stillora::window {

namespace {

/// "_Make Movie" is "Make Movie"; two underscores are one.
std::string withoutMnemonic(const std::string& label)
{
    std::string text;
    for (std::size_t i = 0; i < label.size(); ++i)
        if (label[i] != '_' || (i > 0 && label[i - 1] == '_'))
            text += label[i];
    return text;
}

void nameButtonOnce(GtkButton* button)
{
    const char* label = gtk_button_get_label(button);
    if (!label)
        return;
    const std::string name = gtk_button_get_use_underline(button) ? withoutMnemonic(label) : label;
    gtk_accessible_reset_relation(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_RELATION_LABELLED_BY);
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL, name.c_str(), -1);
}

/// Of a kind, the first below a widget, itself included; null where there is none.
GtkWidget* firstOf(GType type, GtkWidget* root)
{
    if (G_TYPE_CHECK_INSTANCE_TYPE(root, type))
        return root;
    for (GtkWidget* child = gtk_widget_get_first_child(root); child; child = gtk_widget_get_next_sibling(child))
        if (GtkWidget* found = firstOf(type, child))
            return found;
    return nullptr;
}

void name(GtkWidget* widget, const std::string& called)
{
    if (widget)
        gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_LABEL, called.c_str(), -1);
}

} // namespace

void setAccessibleName(Gtk::Widget& widget, const std::string& name)
{
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL, name.c_str(), -1);
}

void setAccessibleDescription(Gtk::Widget& widget, const std::string& description)
{
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                   description.c_str(), -1);
}

void nameButtonsOnce(GtkWidget* root)
{
    if (GTK_IS_BUTTON(root))
        nameButtonOnce(GTK_BUTTON(root));
    for (GtkWidget* child = gtk_widget_get_first_child(root); child; child = gtk_widget_get_next_sibling(child))
        nameButtonsOnce(child);
}

void nameMediaControls(GtkWidget* controls)
{
    name(firstOf(GTK_TYPE_BUTTON, controls), localized("Play or pause"));
    name(firstOf(GTK_TYPE_SCALE, controls), localized("Position"));
    GtkWidget* volume = firstOf(GTK_TYPE_SCALE_BUTTON, controls);
    name(volume, localized("Volume"));
    if (!volume)
        return;
    name(firstOf(GTK_TYPE_BUTTON, gtk_widget_get_first_child(volume)), localized("Volume"));
}

} // namespace stillora::window
