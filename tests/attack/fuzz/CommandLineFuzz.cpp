#include "client/command/AppsCommand.h"
#include "client/command/CommandLine.h"
#include "client/command/ConvertCommand.h"
#include "client/command/FrameCommand.h"
#include "client/command/InfoCommand.h"
#include "client/command/TrimCommand.h"
#include "client/command/WaveformCommand.h"
#include "client/command/document/DocumentEditOptions.h"
#include "client/command/document/DocumentOptions.h"
#include "client/command/document/DocumentSettings.h"
#include "client/command/document/ItemFinder.h"
#include "client/command/options/Arguments.h"
#include "client/command/options/BatchOptions.h"
#include "client/command/options/CreateOptions.h"
#include "tests/attack/fuzz/Checked.h"

#include <cmath>
#include <string>
#include <vector>

using namespace stillora;

namespace {

template <typename Options>
void mustHaveAReason(const Parsed<Options>& parsed)
{
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed))
        mustHold(!answer->text.empty(), "who is refused is told why");
}

void readTexts(const std::string& text)
{
    if (const auto number = numberOf(text))
        mustHold(std::isfinite(*number), "a number is one");
    if (const auto time = timeOf(text))
        mustHold(std::isfinite(time->count()) && time->count() >= 0, "a time is a number");
    (void)timeSpanOf(text);
    (void)soundOf(text);
    (void)readsAsSoundNumber(text);
    (void)heightOf(text);
    for (const std::string& name : DocumentSettings::names()) {
        MovieSettings settings;
        (void)DocumentSettings::read(name, text, settings);
    }
}

} // namespace

// Command lines, whose words end in a zero byte: the words by themselves, and as arguments of each command.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string all(reinterpret_cast<const char*>(bytes), length);
    std::vector<std::string> words;
    for (size_t start = 0; start < all.size();) {
        const size_t end = std::min(all.find('\0', start), all.size());
        words.push_back(all.substr(start, end - start));
        start = end + 1;
    }
    for (const std::string& word : words)
        readTexts(word);
    mustHaveAReason(parseCommandLine(words));
    mustHaveAReason(parseApps(words));
    mustHaveAReason(parseBatch(words));
    mustHaveAReason(parseConvert(words));
    mustHaveAReason(parseCreate(words));
    mustHaveAReason(parseDocumentNew(words));
    mustHaveAReason(parseDocumentAdd(words));
    mustHaveAReason(parseDocumentList(words));
    mustHaveAReason(parseDocumentRender(words));
    mustHaveAReason(parseDocumentCheck(words));
    mustHaveAReason(parseDocumentRemove(words));
    mustHaveAReason(parseDocumentMove(words));
    mustHaveAReason(parseDocumentSet(words));
    mustHaveAReason(parseDocumentSort(words));
    mustHaveAReason(parseFrame(words));
    mustHaveAReason(parseInfo(words));
    mustHaveAReason(parseTrim(words));
    mustHaveAReason(parseWaveform(words));
    return 0;
}
