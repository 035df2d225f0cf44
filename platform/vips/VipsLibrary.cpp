#include "platform/vips/VipsLibrary.h"

#include <vips/vips.h>

#include <dlfcn.h>

#include <mutex>

namespace platform {

namespace {

template <typename Function>
bool look(const char* name, Function*& function)
{
    function = reinterpret_cast<Function*>(vipsFunction(name));
    return function != nullptr;
}

} // namespace

void* vipsFunction(const char* name)
{
    // The name that stands for the ABI of the headers; never closed, as its types stay registered.
    static void* const library = dlopen("libvips.so.42", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    return library ? dlsym(library, name) : nullptr;
}

bool startVips()
{
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] {
        decltype(vips_init)* init = nullptr;
        decltype(vips_block_untrusted_set)* blockUntrusted = nullptr;
        decltype(vips_concurrency_set)* setConcurrency = nullptr;
        decltype(vips_cache_set_max)* setCacheLength = nullptr;
        if (!look("vips_init", init) || !look("vips_block_untrusted_set", blockUntrusted) ||
            !look("vips_concurrency_set", setConcurrency) || !look("vips_cache_set_max", setCacheLength) ||
            init("stillora") != 0)
            return;
        blockUntrusted(TRUE);
        // One photo is one thread, and no photo is opened twice.
        setConcurrency(1);
        setCacheLength(0);
        // Its remarks on odd files are for nobody.
        g_log_set_handler(
            "VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION),
            [](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);
        started = true;
    });
    return started;
}

} // namespace platform
