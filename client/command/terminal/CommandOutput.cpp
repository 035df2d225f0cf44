#include "client/command/terminal/CommandOutput.h"

#include "client/questions/FileReader.h"
#include "client/text/DataBytes.h"
#include "client/text/LocalizedText.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/files/NSFileManager.h"

#include <cstdio>

#include <fmt/format.h>

namespace stillora {

namespace {

std::string faultOfUntoldPath(std::string_view product)
{
    if (product == "movie")
        return localized("the movie was made, but its path could not be written to standard output");
    if (product == "document")
        return localized("the document was made, but its path could not be written to standard output");
    if (product == "sound")
        return localized("the sound was made, but its path could not be written to standard output");
    if (product == "waveform")
        return localized("the waveform was made, but its path could not be written to standard output");
    return localized("the picture was made, but its path could not be written to standard output");
}

} // namespace

bool writeToStandardOutput(std::string_view text)
{
    fmt::print("{}", text);
    return std::fflush(stdout) == 0 && !std::ferror(stdout);
}

CommandOutput::CommandOutput(const Wish& wish)
    : terminal_(wish.isQuiet || wish.isJSON ? ProgressStyle::None : wish.progress), wish_(wish)
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
        note(localized("no faces will be looked for, since {} is not there, which the package stillora-faces brings; "
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

std::optional<int> CommandOutput::failWithoutReader(const std::function<bool()>& goesOn)
{
    const auto fault = FileReader::shared().fault(goesOn);
    return fault ? std::optional(fail(kExitNoService, fault->message)) : std::nullopt;
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
    complain(faultOfUntoldPath(wish_.product));
    return kExitFailed;
}

int CommandOutput::give(std::string_view text, const std::string& complaint, ExitStatus status)
{
    if (writeToStandardOutput(text))
        return status;
    complain(complaint);
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
    complain(localized("the result could not be written to standard output"));
    return status == kExitDone ? kExitFailed : status;
}

} // namespace stillora
