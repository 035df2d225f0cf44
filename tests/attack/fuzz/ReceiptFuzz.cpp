#include "client/batch/Receipt.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

#include <string>

// What tells which movie was made of what, and lies where other machines write too.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const FuzzedFile file({bytes, length});
    const auto receipt = stillora::Receipt::read(file.path());
    if (!receipt)
        return 0;
    const std::string written = receipt->text();
    const FuzzedFile copy({reinterpret_cast<const uint8_t*>(written.data()), written.size()});
    const auto again = stillora::Receipt::read(copy.path());
    mustHold(again.has_value(), "what is written can be read");
    mustHold(again->text() == written, "it is the same");
    return 0;
}
