#include "platform/libav/LibavLog.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <mutex>

namespace platform {

void silenceLibavLog()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback([](void*, int, const char*, va_list) {}); });
}

} // namespace platform
