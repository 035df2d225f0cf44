#include "platform/propertylists/NSPropertyListSerialization.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// Property lists of documents and bookmarks; what was read can be written, and is the same when it is read again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const auto list = propertyListWithData(NSData(bytes, bytes + length));
    if (!list)
        return 0;
    // Dates that far away and some texts have no binary form.
    const auto written = dataWithPropertyList(*list);
    if (!written)
        return 0;
    const auto again = propertyListWithData(*written);
    mustHold(again.has_value(), "what is written can be read");
    mustHold(dataWithPropertyList(*again) == written, "it is the same");
    return 0;
}
