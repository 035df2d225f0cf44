#include "client/command/options/Operands.h"

#include <stillora/Photos.h>

#include "client/command/options/Arguments.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"

#include <sys/stat.h>

namespace stillora {

namespace {

bool isThere(const std::filesystem::path& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

bool isFolder(const std::filesystem::path& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

std::optional<SoundArgument> soundOperand(const std::string& argument)
{
    SoundArgument sound = soundOf(argument);
    const bool isPart = sound.path.native() != argument;
    if (isFolder(argument) || (!isSoundExtension(platform::pathExtension(sound.path.native())) &&
                               !(isPart && !isThere(argument) && isThere(sound.path))))
        return std::nullopt;
    return sound;
}

std::optional<std::filesystem::path> documentOperand(const std::string& argument)
{
    std::string path = argument;
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    if (!path.ends_with(".stillora") || !isFolder(path))
        return std::nullopt;
    return path;
}

} // namespace stillora
