#include "client/processes/ChildProgram.h"

#include "client/text/ClientError.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/InstalledFiles.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace stillora {

namespace {

std::string alternatives(const std::vector<std::string>& places)
{
    std::string text;
    for (const std::string& place : places)
        text = text.empty() ? place : localized("{} or {}", text, place);
    return text;
}

/// As the system calls it; the translations know those by which programs are ended.
std::string nameOfSignal(int signal)
{
    static constexpr std::array kNames{translatable("Aborted"),
                                       translatable("Bad system call"),
                                       translatable("Bus error"),
                                       translatable("CPU time limit exceeded"),
                                       translatable("File size limit exceeded"),
                                       translatable("Floating point exception"),
                                       translatable("Illegal instruction"),
                                       translatable("Killed"),
                                       translatable("Segmentation fault"),
                                       translatable("Terminated")};
    static_cast<void>(kNames);
    const char* const name = sigdescr_np(signal);
    return name ? localized(name) : std::to_string(signal);
}

} // namespace

std::optional<std::string> ChildProgram::find(platform::NSError* error) const
{
    if (const char* named = getenv(variable); named && *named) {
        if (access(named, X_OK) == 0)
            return named;
        fail(error, ErrorCode::ServiceNotFound,
             localized("{}, named by {}, is no program: {}", printable(named), variable, reasonOfErrno(errno)));
        return std::nullopt;
    }
    const auto places = platform::installedPlaces(platform::InstalledFolder::Services, name);
    for (const std::string& place : places)
        if (access(place.c_str(), X_OK) == 0)
            return place;
    fail(error, ErrorCode::ServiceNotFound, notFound(alternatives(places), variable));
    return std::nullopt;
}

std::string howItEnded(int status)
{
    if (WIFSIGNALED(status))
        return localized("by signal {} ({})", WTERMSIG(status), nameOfSignal(WTERMSIG(status)));
    return localized("with exit status {}", WEXITSTATUS(status));
}

} // namespace stillora
