#include "window/toolkit/Player.h"

#include "platform/dispatch/DispatchQueue.h"

#include <dlfcn.h>
#include <glib.h>

namespace stillora::window {

void preparePlayer()
{
    static const bool isAsked = [] {
        platform::DispatchQueue::global()->async([] {
            // The toolkit loads the same library when it plays; where it is not installed, it tells so then.
            void* library = dlopen("libgstreamer-1.0.so.0", RTLD_NOW);
            using Start = gboolean (*)(int* count, char*** arguments, GError** error);
            if (const auto start = library ? reinterpret_cast<Start>(dlsym(library, "gst_init_check")) : nullptr)
                start(nullptr, nullptr, nullptr);
        });
        return true;
    }();
    static_cast<void>(isAsked);
}

} // namespace stillora::window
