#include "client/command/SoundArguments.h"

#include "client/command/Arguments.h"

#include <fmt/format.h>

std::string readRange(const std::string& text, SoundArgument& sound)
{
    const auto span = timeSpanOf(text);
    if (!span || (!span->start && !span->end))
        return fmt::format("--range takes START-END in seconds or m:ss, of which one may be left out, not \"{}\"",
                           text);
    if (span->endsBeforeItStarts())
        return fmt::format("the range {} ends before it starts", text);
    sound.start = span->start;
    sound.end = span->end;
    return {};
}
