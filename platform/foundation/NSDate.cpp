#include "platform/foundation/NSDate.h"

#include <chrono>

namespace platform {

NSDate NSDate::date()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return {std::chrono::duration<double>(sinceEpoch).count() - kTimeIntervalSince1970};
}

} // namespace platform
