#include "client/command/AppsCommand.h"
#include "client/command/BatchCommand.h"
#include "client/command/Command.h"
#include "client/command/ConvertCommand.h"
#include "client/command/CreateCommand.h"
#include "client/command/FrameCommand.h"
#include "client/command/InfoCommand.h"
#include "client/command/SettingsCommand.h"
#include "client/command/TrimCommand.h"
#include "client/command/WaveformCommand.h"
#include "client/command/doctor/DoctorCommand.h"
#include "client/command/document/DocumentCommand.h"

namespace stillora {

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {"create", runParsed<CreateOptions, parseCreate, runCreateCommand>},
        {"document", runDocumentCommand},
        {"batch", runParsed<BatchOptions, parseBatch, runBatchCommand>},
        {"frame", runParsed<FrameOptions, parseFrame, runFrameCommand>},
        {"info", runParsed<InfoOptions, parseInfo, runInfoCommand>},
        {"waveform", runParsed<WaveformOptions, parseWaveform, runWaveformCommand>},
        {"convert", runParsed<ConvertOptions, parseConvert, runConvertCommand>},
        {"trim", runParsed<TrimOptions, parseTrim, runTrimCommand>},
        {"set", runSetCommand},
        {"settings", runSettingsCommand},
        {"doctor", runDoctorCommand},
        {"apps", runParsed<AppsOptions, parseApps, runAppsCommand>},
    };
    return all;
}

} // namespace stillora
