#include "window/toolkit/GLibMainLoop.h"

#include <utility>

#include <gdk/gdk.h>
#include <glib.h>

namespace stillora::window {

namespace {

/// After drawing, which comes at GDK_PRIORITY_REDRAW, and before what the toolkit does when it has nothing else to do.
constexpr int kPriority = GDK_PRIORITY_REDRAW + 10;

using Call = std::function<void()>;

gboolean perform(void* call)
{
    (*static_cast<Call*>(call))();
    return G_SOURCE_REMOVE;
}

void forget(void* call)
{
    delete static_cast<Call*>(call);
}

} // namespace

void GLibMainLoop::post(std::function<void()> call)
{
    g_idle_add_full(kPriority, perform, new Call(std::move(call)), forget);
}

void GLibMainLoop::postAfter(std::chrono::milliseconds delay, std::function<void()> call)
{
    g_timeout_add_full(kPriority, static_cast<unsigned>(delay.count()), perform, new Call(std::move(call)), forget);
}

} // namespace stillora::window
