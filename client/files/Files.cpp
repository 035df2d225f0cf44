#include <stillora/Files.h>

#include "client/questions/FactsOfFile.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/system/LaunchServices.h"
#include "util/MORPalvineCommons.h"

#include <cerrno>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

using platform::NSURL;

Error unusable(const std::filesystem::path& file, const std::string& reason, ErrorCode code = ErrorCode::Unsupported)
{
    return {code, file, fmt::format("{}: {}", file.native(), reason)};
}

} // namespace

Result<FileFacts> factsOfFile(const std::filesystem::path& file)
{
    return factsOfFile(file, {});
}

Result<FileFacts> factsOfFile(const std::filesystem::path& file, const std::function<bool()>& goesOn)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return unusable(file, reasonOfErrno(errno), ErrorCode::FileNotFound);
    if (S_ISDIR(status.st_mode))
        return unusable(file, localized("is a folder"));
    // Anything else might keep whoever opens it waiting.
    if (!S_ISREG(status.st_mode))
        return unusable(file, localized("is not a regular file"));
    if (access(file.c_str(), R_OK) != 0)
        return unusable(file, reasonOfErrno(errno), ErrorCode::NoPermission);
    if (status.st_size == 0)
        return unusable(file, localized("is empty"));
    auto asked = FileReader::shared().ask(FactsQuestion{file}, goesOn);
    if (!asked)
        return unusable(file, asked.error().message, asked.error().code);
    Result<FileFacts> facts = *std::move(asked);
    if (!facts)
        return facts;
    facts->path = file;
    facts->bytes = status.st_size;
    return facts;
}

std::vector<Application> applicationsFor(const std::filesystem::path& file)
{
    std::vector<Application> applications;
    const auto urls = MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(NSURL::fileURLWithPath(file.native()));
    if (!urls)
        return applications;
    for (const NSURL& url : *urls)
        // One that was removed in this moment has no name any more.
        if (auto application = platform::LaunchServices::desktop().applicationAtURL(url))
            applications.push_back({std::move(application->name), std::move(application->identifier), url.path()});
    return applications;
}

} // namespace stillora
