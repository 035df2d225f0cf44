#include "client/command/document/DocumentOpening.h"

#include "client/text/LocalizedText.h"

#include <optional>
#include <utility>

#include <sys/stat.h>

namespace stillora {

namespace {

bool exists(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

} // namespace

std::filesystem::path locationOfDocument(const std::string& given)
{
    const std::string withExtension = given + "." + std::string(kDocumentExtension);
    return !given.ends_with('/') && !exists(given) && exists(withExtension) ? withExtension : given;
}

std::optional<Document> openForChange(const std::string& given, MovieCommand& command, int& status)
{
    bool isWaitTold = false;
    const auto waits = [&] {
        if (!std::exchange(isWaitTold, true))
            command.note(localized("waiting for another program that changes {}", given));
        return !command.isCancelled();
    };
    auto document = Document::loadForChange(locationOfDocument(given), waits);
    if (document)
        return *std::move(document);
    status = endBy(document.error(), kExitBadInput, command);
    return std::nullopt;
}

int endBy(const Error& error, ExitStatus status, MovieCommand& command)
{
    return error.code == ErrorCode::Cancelled ? command.stopped() : command.fail(status, error.message);
}

} // namespace stillora
