#include "platform/foundation/NSDate.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace platform {

NSDate NSDate::date()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return {std::chrono::duration<double>(sinceEpoch).count() - kTimeIntervalSince1970};
}

NSDate NSDate::dateOfNewFiles()
{
    // The end of the year 9999, after which a date has no usual form.
    constexpr int64_t kLast = 253402300799;
    const char* const variable = std::getenv("SOURCE_DATE_EPOCH");
    const std::string_view text = variable ? variable : "";
    int64_t seconds = -1;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (fault != std::errc() || end != text.data() + text.size() || seconds < 0 || seconds > kLast)
        return date();
    return {static_cast<double>(seconds) - kTimeIntervalSince1970};
}

} // namespace platform
