#include "window/toolkit/Player.h"

#include "platform/dispatch/DispatchQueue.h"

#include <mutex>

#include <dlfcn.h>
#include <glib.h>

namespace stillora::window {

void preparePlayer()
{
    static std::once_flag isAsked;
    std::call_once(isAsked, [] {
        platform::DispatchQueue::global()->async([] {
            // The toolkit loads the same library when it plays; where it is not installed, it tells so then.
            void* library = dlopen("libgstreamer-1.0.so.0", RTLD_NOW);
            using Start = gboolean (*)(int* count, char*** arguments, GError** error);
            if (const auto start = library ? reinterpret_cast<Start>(dlsym(library, "gst_init_check")) : nullptr)
                start(nullptr, nullptr, nullptr);
        });
    });
}

} // namespace stillora::window
