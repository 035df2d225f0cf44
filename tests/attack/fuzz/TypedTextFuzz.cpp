#include "tests/attack/fuzz/Checked.h"
#include "window/toolkit/TimeText.h"

#include <cmath>
#include <string>

using namespace stillora::window;

// What people type into the window for times and numbers.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view typed(reinterpret_cast<const char*>(bytes), length);
    if (const auto number = numberOfText(typed))
        mustHold(std::isfinite(*number) && *number >= 0, "a number is one");
    const auto time = timeOfText(typed);
    if (!time)
        return 0;
    mustHold(std::isfinite(time->count()) && time->count() >= 0, "a time is a number");
    const std::string shown = textOfTime(*time);
    const auto again = timeOfText(shown);
    // Hundredths are shown.
    mustHold(again && std::abs(again->count() - time->count()) <= 0.0051, "what is shown can be typed");
    mustHold(textOfTime(*again) == shown, "it is shown the same");
    return 0;
}
