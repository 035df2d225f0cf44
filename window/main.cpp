#include <stillora/Localization.h>

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"
#include "window/WindowApplication.h"

#include <clocale>
#include <csignal>

#include <glibmm/init.h>
#include <gtk/gtk.h>
#include <libintl.h>

int main(int argc, char** argv)
{
    platform::holdStandardDescriptors();
    // A process that goes away is noticed when writing to it fails; so is a limit on the size of files.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    stillora::setUpLocalization();
    std::setlocale(LC_TIME, "");
    std::setlocale(LC_COLLATE, "");
    // The toolkit would have numbers written as the locale does, also those that programs read.
    gtk_disable_setlocale();
    Glib::set_init_to_users_preferred_locale(false);
    const std::string texts = platform::installedPlace(platform::InstalledFolder::Shared, "locale");
    bindtextdomain("stillora", texts.c_str());
    bind_textdomain_codeset("stillora", "UTF-8");
    return stillora::window::WindowApplication::create()->run(argc, argv);
}
