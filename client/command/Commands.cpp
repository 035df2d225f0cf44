#include "client/command/AppsCommand.h"
#include "client/command/Command.h"
#include "client/command/CreateCommand.h"
#include "client/command/DocumentCommand.h"
#include "client/command/FrameCommand.h"

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {"create", "make a movie of photos", runParsed<CreateOptions, parseCreate, runCreateCommand>},
        {"document", "keep photos, sounds and settings in a document", runDocumentCommand},
        {"frame", "save one frame of a movie as a picture", runParsed<FrameOptions, parseFrame, runFrameCommand>},
        {"apps", "list the applications that can open a file", runParsed<AppsOptions, parseApps, runAppsCommand>},
    };
    return all;
}
