#include "client/reader/Answers.h"
#include "platform/faces/CIDetector.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/graphics/TextRenderer.h"
#include "platform/libav/MediaCodecs.h"
#include "video/PhotoFrame.h"

#include <utility>

namespace stillora {

namespace {

constexpr double kUsualHeight = 720;

std::vector<std::string>& lacks()
{
    static auto& kept = *new std::vector<std::string>;
    return kept;
}

std::vector<std::string> missingOf(const std::vector<std::string>& names, bool (*isThere)(const std::string&))
{
    std::vector<std::string> missing;
    for (const std::string& name : names)
        if (!isThere(name))
            missing.push_back(name);
    return missing;
}

} // namespace

void setLacksOfConfinement(std::vector<std::string> found)
{
    lacks() = std::move(found);
}

Abilities answerTo(const AbilitiesQuestion& question)
{
    return {.missingEncoders = missingOf(question.encoders, platform::hasEncoder),
            .missingDecoders = missingOf(question.decoders, platform::hasDecoder),
            .hasFontOfWatermark = platform::hasFontFor("Stillora", watermarkAttributes(kUsualHeight)),
            .findsFaces = question.asksForFaces && platform::CIDetectorModule::mainModule().makeDetector() != nullptr,
            .lacksOfConfinement = lacks()};
}

} // namespace stillora
