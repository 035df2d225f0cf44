#include "client/command/options/NameList.h"
#include "client/text/Text.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/foundation/PluralForms.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

#include <stillora/Photos.h>

#include <string_view>

using namespace platform;

// Texts that files and catalogues hold: sizes, rules of plurals, lists of names.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    (void)NSSizeFromString(text);
    const PluralForms plurals(text);
    for (const uint64_t number : {0ULL, 1ULL, 2ULL, 5ULL, 11ULL, 21ULL, 1000000ULL})
        (void)plurals.formOf(number);
    for (const char c : stillora::printable(text))
        mustHold(c != '\033' && c != '\n', "a name cannot move the cursor");
    mustHold(stillora::prefixOfBytes(text, 8).size() <= 8, "a text is cut");
    mustHold(stillora::displayWidth(stillora::cutToWidth(stillora::printable(text), 10, "...")) <= 10, "a text is cut");
    const std::string_view one = text.substr(0, length / 2);
    const std::string_view other = text.substr(length / 2);
    mustHold(!stillora::isBeforeInNaturalOrder(one, one), "nothing is before itself");
    mustHold(!stillora::isBeforeInNaturalOrder(one, other) || !stillora::isBeforeInNaturalOrder(other, one),
             "of two names one is first");
    const FuzzedFile file({bytes, length});
    for (const auto end : {stillora::NameList::NameEnd::Line, stillora::NameList::NameEnd::Null})
        if (const auto names = stillora::namesIn({file.path(), end}))
            for (const std::string& name : *names)
                mustHold(!name.empty(), "a name is not empty");
    return 0;
}
