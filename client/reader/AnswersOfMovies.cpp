#include "client/reader/Answers.h"
#include "client/reader/MovieCheck.h"
#include "client/text/ClientError.h"
#include "platform/files/NSURL.h"
#include "platform/movie/MediaInspection.h"
#include "platform/movie/RepeatedPictures.h"

#include <algorithm>
#include <iterator>

namespace stillora {

namespace {

/// Fine enough for any time that is given in decimals.
constexpr int32_t kTimescale = 1'000'000;

} // namespace

Result<MovieLook> answerTo(const MovieQuestion& question)
{
    const auto movie = platform::NSURL::fileURLWithPath(question.file.native(), false);
    platform::NSError error;
    const auto report = platform::inspectMedia(movie, &error);
    if (!report)
        return errorOf(error, question.file);
    MovieLook look{.faults = findFaults(*report, question.expected)};
    if (question.output.empty())
        return look;
    const auto repeated = platform::NSURL::fileURLWithPath(question.output.native(), false);
    const auto longest = platform::CMTimeMakeWithSeconds(question.longestPicture.count(), kTimescale);
    const auto added = platform::repeatLongPictures(
        movie, longest, repeated, [] { return false; }, &error);
    if (!added)
        return errorOf(error, question.file);
    look.isRepeated = *added > 0;
    if (!look.isRepeated)
        return look;
    const auto repeatedReport = platform::inspectMedia(repeated, &error);
    if (!repeatedReport)
        return errorOf(error, question.output);
    std::ranges::move(findFaultsOfRepetition(*repeatedReport, *report, longest), std::back_inserter(look.faults));
    return look;
}

} // namespace stillora
