#include "client/service/ServiceConnection.h"
#include "tests/attack/fuzz/Checked.h"
#include "video/FrameFailure.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

// What a client reads out of the service's log, which a stranger may have written.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    std::vector<std::string> lines;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        lines.emplace_back(text.substr(start, end - start));
        if (const auto photo = photoOfFailedFrame(lines.back()))
            mustHold(lines.back().ends_with(*photo), "a photo is named by its line");
        start = end + 1;
    }
    const std::string complaint = stillora::lastComplaint(lines);
    mustHold(complaint.find_first_of("\n\033") == std::string::npos, "a complaint cannot move the cursor");
    return 0;
}
