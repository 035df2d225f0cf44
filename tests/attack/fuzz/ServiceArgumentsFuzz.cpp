#include "service/ServiceArguments.h"
#include "tests/attack/fuzz/Checked.h"

#include <algorithm>
#include <string_view>
#include <vector>

// Command lines of the service, whose words end in a zero byte.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view all(reinterpret_cast<const char*>(bytes), length);
    std::vector<std::string_view> words;
    for (size_t start = 0; start < all.size();) {
        const size_t end = std::min(all.find('\0', start), all.size());
        words.push_back(all.substr(start, end - start));
        start = end + 1;
    }
    const ServiceArguments read = ServiceArguments::read(words);
    if (read.answer) {
        mustHold(!read.answer->text.empty(), "who is not served is told why");
        mustHold(
            std::ranges::none_of(read.answer->text,
                                 [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\n') || c == 127; }),
            "an answer can be shown");
        return 0;
    }
    mustHold(!read.fileList || *read.fileList >= 0, "a descriptor is one");
    mustHold(!read.part || (read.part->first % 2 == 0 && read.part->first < read.part->movieCount),
             "a part lies in its movie");
    mustHold(std::ranges::none_of(read.pieces, &std::string::empty), "a piece is a file");
    return 0;
}
