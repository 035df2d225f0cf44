#include "client/command/CommandOutput.h"

#include <stillora/Localization.h>

#include "client/DataBytes.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/files/NSFileManager.h"

#include <cstdio>

#include <fmt/format.h>

namespace stillora {

bool writeToStandardOutput(std::string_view text)
{
    fmt::print("{}", text);
    return std::fflush(stdout) == 0 && !std::ferror(stdout);
}

CommandOutput::CommandOutput(const Wish& wish)
    : terminal_(wish.isQuiet || wish.isJSON ? Terminal::ProgressLines::Hidden : Terminal::ProgressLines::Shown),
      wish_(wish)
{}

void CommandOutput::note(const std::string& text)
{
    if (!wish_.isQuiet)
        complain(text);
}

void CommandOutput::complain(const std::string& text)
{
    terminal_.writeLine("stillora: " + text);
}

void CommandOutput::noteMissingFaceDetector()
{
    using platform::CIDetectorModule;
    if (const auto file = CIDetectorModule::missingFile(CIDetectorModule::standardPaths()))
        note(fmt::format("no faces will be looked for, since {} is not there, which the package stillora-faces brings; "
                         "photos are cropped around their middle",
                         *file));
}

std::string CommandOutput::save(std::span<const std::byte> contents, const std::filesystem::path& file)
{
    platform::NSError error;
    const bool isSaved = platform::NSFileManager::defaultManager().writeContents(
        dataOf(contents), platform::NSURL::fileURLWithPath(file.native()), &error);
    return isSaved ? "" : error.localizedDescription;
}

JSONWriter CommandOutput::resultOf(const std::string& path, bool isAsWished) const
{
    return JSONWriter().add("ok", isAsWished).add("cancelled", false).add(wish_.product, path).addNull("error");
}

int CommandOutput::fail(ExitStatus status, const std::string& complaint, const std::string& reason,
                        const JSONWriter& details)
{
    complain(complaint);
    JSONWriter result;
    result.add("ok", false).add("cancelled", false).addNull(wish_.product).add("error", reason);
    return writeResult(result.addAll(details), status);
}

int CommandOutput::stopped(int signal)
{
    clearProgress();
    note(localized("stopped; nothing was left behind"));
    return writeResult(JSONWriter().add("ok", false).add("cancelled", true).addNull(wish_.product).addNull("error"),
                       kExitSignalled + signal);
}

int CommandOutput::succeed(const std::string& path, const JSONWriter& result, ExitStatus status)
{
    if (wish_.isJSON)
        return writeResult(result, status);
    if (writeToStandardOutput(path + "\n"))
        return status;
    complain(fmt::format("the {} was made, but its path could not be written to standard output", wish_.product));
    return kExitFailed;
}

int CommandOutput::give(std::string_view text, std::string_view name, ExitStatus status)
{
    if (writeToStandardOutput(text))
        return status;
    complain(fmt::format("{} could not be written to standard output", name));
    return kExitFailed;
}

int CommandOutput::writeResult(const JSONWriter& result, int status)
{
    if (!wish_.isJSON)
        return status;
    JSONWriter whole;
    if (wish_.form == ResultForm::Event)
        whole.add("event", "result");
    if (writeToStandardOutput(whole.addAll(result).text() + "\n"))
        return status;
    complain("the result could not be written to standard output");
    return status == kExitDone ? kExitFailed : status;
}

} // namespace stillora
