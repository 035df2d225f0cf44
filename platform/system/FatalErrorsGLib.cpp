#include "platform/system/FatalErrors.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <system_error>

#include <glib.h>
#include <sys/uio.h>
#include <unistd.h>

namespace platform {

namespace {

const char* name = "";

/// How often GLib may say that it cannot wait, and the time between.
constexpr int kMostRefusedWaits = 500;
constexpr useconds_t kPauseMicroseconds = 10'000;

[[noreturn]] void endByException()
{
    const std::exception_ptr exception = std::current_exception();
    if (!exception)
        endPlainly("the program ended itself");
    try {
        std::rethrow_exception(exception);
    } catch (const std::bad_alloc&) {
        endPlainly("there is not enough memory");
    } catch (const std::system_error& known) {
        endPlainly(known.code() == std::errc::resource_unavailable_try_again ? "no thread can be made" : known.what());
    } catch (const std::exception& known) {
        endPlainly(known.what());
    } catch (...) {
        endPlainly("an unknown exception was not caught");
    }
}

const char* messageOf(const GLogField* fields, gsize count)
{
    for (gsize i = 0; i < count; ++i)
        if (std::strcmp(fields[i].key, "MESSAGE") == 0)
            return static_cast<const char*>(fields[i].value);
    return "a library ended the program";
}

/// GLib tries again at once, and complains each time.
/// @return whether it was said before
bool isRepeatedComplaint(const char* message)
{
    static std::atomic<int> count{0};
    if (std::strncmp(message, "poll(2) failed", 14) != 0)
        return false;
    const int before = count++;
    if (before >= kMostRefusedWaits)
        endPlainly(message);
    usleep(kPauseMicroseconds);
    return before > 0;
}

GLogWriterOutput writeLog(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer data)
{
    const char* const message = messageOf(fields, count);
    if ((level & (G_LOG_LEVEL_ERROR | G_LOG_FLAG_FATAL)) != 0)
        endPlainly(message);
    return isRepeatedComplaint(message) ? G_LOG_WRITER_HANDLED : g_log_writer_default(level, fields, count, data);
}

} // namespace

void endPlainly(const char* reason)
{
    const auto part = [](const char* text) { return iovec{const_cast<char*>(text), std::strlen(text)}; };
    const std::array<iovec, 4> line{part(name), part(": "), part(reason), part("\n")};
    static_cast<void>(!writev(STDERR_FILENO, line.data(), line.size()));
    _exit(EXIT_FAILURE);
}

void endPlainlyOnFatalErrors(const char* program)
{
    name = program;
    std::set_terminate(endByException);
    g_log_set_writer_func(writeLog, nullptr, nullptr);
}

} // namespace platform
