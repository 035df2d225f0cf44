#include <stillora/Sounds.h>

#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <map>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

/// By so much a selection may end behind its file: times are given to hundredths.
constexpr Seconds kEndTolerance{0.05};

Result<SoundMeasure> measure(const std::string& path, const std::function<bool()>& goesOn)
{
    const auto bad = [](std::string fault) { return SoundMeasure{Seconds(0), 0, std::move(fault)}; };
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return bad(reasonOfErrno(errno));
    // Anything else might keep whoever opens it waiting.
    if (!S_ISREG(status.st_mode))
        return bad(localized("is not a regular file"));
    if (access(path.c_str(), R_OK) != 0)
        return bad(reasonOfErrno(errno));
    if (status.st_size == 0)
        return bad(localized("is empty"));
    auto answer = FileReader::shared().ask(SoundQuestion{path}, goesOn);
    if (!answer && answer.error().code != ErrorCode::Cancelled)
        return bad(answer.error().message);
    return answer;
}

} // namespace

CheckedSounds checkSounds(const std::vector<SoundArgument>& arguments, const std::function<bool()>& goesOn)
{
    // A file that is given several times is measured once: without an index that takes reading all of it.
    std::map<std::filesystem::path, SoundMeasure> measures;
    CheckedSounds checked;
    for (const SoundArgument& argument : arguments) {
        const auto [entry, isNew] = measures.try_emplace(argument.path);
        if (isNew) {
            auto measured = measure(argument.path.native(), goesOn);
            checked.isCancelled = !measured || (goesOn && !goesOn());
            if (checked.isCancelled)
                return checked;
            entry->second = *std::move(measured);
        }
        const SoundMeasure& file = entry->second;
        const auto bad = [&](std::string reason) {
            checked.bad.push_back(
                {argument.path, std::move(reason), static_cast<size_t>(&argument - arguments.data())});
        };
        if (!file.fault.empty()) {
            bad(file.fault);
            continue;
        }
        if (!argument.start && !argument.end) {
            checked.good.push_back({argument.path, std::nullopt, file.length, file.sampleRateHz});
            continue;
        }
        const Seconds start = argument.start.value_or(Seconds(0));
        const Seconds end = argument.end.value_or(file.length);
        if (!std::isfinite(start.count()) || !std::isfinite(end.count()) || start.count() < 0 ||
            (argument.end && end <= start)) {
            bad(localized("has a selection that holds nothing"));
            continue;
        }
        if (start >= file.length)
            bad(localized("is only {} long, and cannot be played from {}", secondsText(file.length),
                          secondsText(start)));
        else if (end > file.length + kEndTolerance)
            bad(localized("is only {} long, and cannot be played up to {}", secondsText(file.length),
                          secondsText(end)));
        else
            checked.good.push_back({argument.path, SoundFacts::Selection{start, std::min(end, file.length)},
                                    std::min(end, file.length) - start, file.sampleRateHz});
    }
    return checked;
}

} // namespace stillora
