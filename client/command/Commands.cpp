#include "client/command/AppsCommand.h"
#include "client/command/Command.h"
#include "client/command/ConvertCommand.h"
#include "client/command/CreateCommand.h"
#include "client/command/DocumentCommand.h"
#include "client/command/FrameCommand.h"
#include "client/command/InfoCommand.h"
#include "client/command/TrimCommand.h"
#include "client/command/WaveformCommand.h"

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {"create", "make a movie of photos", runParsed<CreateOptions, parseCreate, runCreateCommand>},
        {"document", "keep photos, sounds and settings in a document", runDocumentCommand},
        {"frame", "save one frame of a movie as a picture", runParsed<FrameOptions, parseFrame, runFrameCommand>},
        {"info", "tell what is known of photos, sounds and movies", runParsed<InfoOptions, parseInfo, runInfoCommand>},
        {"waveform", "draw how loud a sound is over time",
         runParsed<WaveformOptions, parseWaveform, runWaveformCommand>},
        {"convert", "save a sound, or a part of it, as AAC",
         runParsed<ConvertOptions, parseConvert, runConvertCommand>},
        {"trim", "cut a part out of a sound without encoding it anew",
         runParsed<TrimOptions, parseTrim, runTrimCommand>},
        {"apps", "list the applications that can open a file", runParsed<AppsOptions, parseApps, runAppsCommand>},
    };
    return all;
}
