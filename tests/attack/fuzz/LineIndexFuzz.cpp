#include "client/batch/manifest/LineIndex.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

// Where each line of a manifest begins, as another process wrote it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    using stillora::LineIndex;
    const FuzzedFile file({bytes, length});
    const auto index = LineIndex::open(file.path());
    if (!index)
        return 0;
    mustHold(index->lineCount() <= length, "a line takes some bytes of the index");
    mustHold(index->movieCount() <= index->lineCount(), "a movie has a line");
    size_t lines = 0;
    index->forEach([&](size_t line, const LineIndex::Entry& entry) {
        mustHold(line == ++lines, "no line is left out");
        mustHold(LineIndex::keyOf(entry.keyText()) == entry.key, "a key is the same as a text");
        return true;
    });
    mustHold(lines == index->lineCount(), "there are as many lines as it says");
    for (size_t line = 1; line <= lines; ++line)
        mustHold(index->entry(line).has_value(), "each line is there");
    index->forEachDuplicate(
        [](size_t line, size_t earlier) { mustHold(earlier < line, "the first of a kind is none"); });
    return 0;
}
