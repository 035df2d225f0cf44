#include "client/command/FrameCommand.h"

#include <stillora/Photos.h>
#include <stillora/Picture.h>

#include "client/command/making/FileIdentity.h"
#include "client/command/terminal/CommandOutput.h"
#include "client/text/LocalizedText.h"

#include <fmt/format.h>

namespace stillora {

namespace {

std::string facesText(size_t count)
{
    return count == 0 ? localized("no faces") : localizedCount(count, "{} face", "{} faces");
}

} // namespace

Parsed<FrameOptions> parseFrame(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("frame", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    FrameOptions options;
    options.reducesBorders = given.has("reduce-borders");
    options.showsFaces = given.has("show-faces");
    std::string fault;
    if (const auto quality = given.value("quality"))
        fault = readQuality(*quality, options.quality);
    if (fault.empty())
        fault = readWatermark(given, options.watermark);
    if (fault.empty())
        fault = readOnly(given, OnlyOperand::Photo, options.photo);
    if (fault.empty())
        fault = readPNG(given.value("output").value_or(""), options.output);
    if (!fault.empty())
        return usageError(fault, "frame");
    return options;
}

int runFrameCommand(const FrameOptions& options)
{
    CommandOutput output({});
    const auto fail = [&](ExitStatus status, const std::string& reason) { return output.fail(status, reason); };
    if (const auto missing = output.failWithoutReader())
        return *missing;
    const CheckedPhotos checked = checkPhotos({{options.photo, PhotoCandidate::Origin::Named}});
    if (checked.good.empty())
        return fail(kExitBadInput, checked.bad.empty()
                                       ? localized("{}: it is no photo", options.photo)
                                       : fmt::format("{}: {}", options.photo, checked.bad.front().reason));
    if (areSameFile(options.photo, options.output))
        return fail(kExitUsage, localized("the frame would replace the photo {}", options.photo));

    if (checked.good.front().isCutOff)
        output.note(fmt::format("{}: {}", options.photo, reasonOfCutOffPhoto()));
    if (options.reducesBorders || options.showsFaces)
        output.noteMissingFaceDetector();
    const auto frame = renderFrame(checked.good.front(), {.quality = options.quality,
                                                          .reducesBorders = options.reducesBorders,
                                                          .showsFaces = options.showsFaces,
                                                          .watermark = options.watermark});
    if (!frame)
        return fail(kExitFailed, frame.error().message);
    if (const std::string fault = CommandOutput::save(frame->picture, options.output); !fault.empty())
        return fail(kExitFailed, fault);

    // Where nobody looked for faces, nothing is said of them.
    const bool saysFaces = options.showsFaces || options.reducesBorders;
    output.note(fmt::format("{:.0f} x {:.0f}{}", frame->size.width, frame->size.height,
                            saysFaces ? ", " + facesText(frame->faceCount) : ""));
    return output.succeed(options.output, output.resultOf(options.output));
}

} // namespace stillora
