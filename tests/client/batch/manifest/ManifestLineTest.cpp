#include "client/batch/manifest/ManifestLine.h"

#include "client/text/JSONValue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fmt/format.h>

using namespace stillora;

namespace {

std::optional<ManifestMovie> movieOf(std::string_view line, std::vector<ManifestFault>& faults)
{
    return readManifestLine(line, "/lists", 7, faults);
}

ManifestMovie goodMovie(std::string_view line)
{
    std::vector<ManifestFault> faults;
    auto movie = movieOf(line, faults);
    for (const ManifestFault& fault : faults)
        ADD_FAILURE() << fault.field << ": " << fault.reason;
    return movie.value_or(ManifestMovie{});
}

/// The fields that are wrong, "*" for the whole line.
std::string wrongFields(std::string_view line)
{
    std::vector<ManifestFault> faults;
    const bool isMovie = movieOf(line, faults).has_value();
    EXPECT_EQ(isMovie, faults.empty());
    std::string fields;
    for (const ManifestFault& fault : faults) {
        EXPECT_EQ(fault.line, 7u);
        EXPECT_FALSE(fault.reason.empty());
        fields += (fields.empty() ? "" : " ") + (fault.field.empty() ? "*" : fault.field);
    }
    return fields;
}

} // namespace

TEST(ManifestLine, TakesEverySettingOfAMovie)
{
    const ManifestMovie movie = goodMovie(
        R"({"id": "a", "photos": ["p", "/q/r.jpg"], "sounds": ["s.mp3@0:01-2"], "seconds": 2.5, "quality": 1080,
        "codec": "hvc1", "loop": true, "silence": false, "sort": "date", "reverse": true, "recursive": true,
        "reduceBorders": true, "watermark": false, "web": true, "title": "Name.mov", "save": "../out", "skipBad": true})");
    const CreateOptions& options = movie.options;
    EXPECT_EQ(movie.id, "a");
    EXPECT_EQ(options.photos, (std::vector<std::filesystem::path>{"/lists/p", "/q/r.jpg"}));
    EXPECT_EQ(options.sounds, (std::vector<SoundArgument>{{"/lists/s.mp3", Seconds(1), Seconds(2)}}));
    EXPECT_EQ(options.seconds, Seconds(2.5));
    EXPECT_EQ(options.quality, 1080);
    EXPECT_EQ(options.codec, "hvc1");
    EXPECT_TRUE(options.loopsSounds && options.order.isReversed && options.reducesBorders && options.skipsBad);
    EXPECT_FALSE(options.fillsSilence);
    EXPECT_EQ(options.order.sort, PhotoSort::ByDate);
    EXPECT_EQ(options.innerFolders, InnerFolders::Listed);
    EXPECT_EQ(options.watermark, Watermark::Absent);
    EXPECT_EQ(options.use, MovieUse::Web);
    EXPECT_EQ(options.title, "Name");
    EXPECT_EQ(options.saveFolder, "/out");
}

TEST(ManifestLine, LeavesUnsaidWhatALineDoesNotSay)
{
    const CreateOptions options = goodMovie(R"({"photos": ["p"]})").options;
    EXPECT_FALSE(options.seconds || options.title || options.saveFolder || options.isQualityGiven);
    EXPECT_TRUE(options.fillsSilence);
    EXPECT_EQ(options.watermark, Watermark::Usual);
}

TEST(ManifestLine, NamesEveryFieldThatIsWrong)
{
    const std::vector<std::pair<std::string_view, std::string_view>> cases{
        {"nothing", "*"},
        {"[1]", "*"},
        {"{} {}", "*"},
        {R"({"photos": ["p"], "photos": ["q"]})", "*"},
        {"{}", "photos"},
        {R"({"photos": []})", "photos"},
        {R"({"photos": "p"})", "photos"},
        {R"({"photos": [""]})", "photos"},
        {R"({"photos": ["p"], "document": "d.stillora"})", "photos"},
        {R"({"photos": ["p"], "sound": "s"})", "sound"},
        {R"({"photos": ["p"], "seconds": "4"})", "seconds"},
        {R"({"photos": ["p"], "seconds": 0, "quality": 1081, "codec": "x"})", "seconds quality codec"},
        {R"({"photos": ["p"], "loop": 1})", "loop"},
        {R"({"photos": ["p"], "loop": true})", "loop"},
        {R"({"photos": ["p"], "sounds": ["s"], "loop": true, "fitMusic": true})", "loop"},
        {R"({"photos": ["p"], "sounds": ["s"], "seconds": 1, "fitMusic": true})", "fitMusic"},
        {R"({"photos": ["p"], "sounds": ["s.mp3@2-1"]})", "sounds"},
        {R"({"photos": ["p"], "title": "a/b"})", "title"},
        {R"({"photos": ["p"], "output": "a.mov", "title": "a"})", "output"},
        {R"({"photos": ["p"], "output": "a.mp4"})", "output"},
        {R"({"photos": ["p"], "id": ""})", "id"},
        {R"({"document": "d.stillora", "reverse": true})", "reverse"},
    };
    for (const auto& [line, fields] : cases)
        EXPECT_EQ(wrongFields(line), fields) << line;
}

TEST(ManifestLine, FindsAMovieAgainByItsIdAlone)
{
    const std::string key = goodMovie(R"({"id": "a", "photos": ["p"]})").key;
    EXPECT_EQ(key.size(), 32u);
    EXPECT_EQ(goodMovie(R"({"id": "a", "photos": ["q"], "title": "T"})").key, key);
    EXPECT_NE(goodMovie(R"({"id": "b", "photos": ["p"]})").key, key);
}

TEST(ManifestLine, FindsAMovieWithoutAnIdByItsSourcesAndNames)
{
    const std::string key = goodMovie(R"({"photos": ["p", "q"], "title": "T"})").key;
    EXPECT_EQ(goodMovie(R"({"title": "T", "photos": ["p", "q"], "seconds": 9})").key, key);
    EXPECT_NE(goodMovie(R"({"photos": ["pq"], "title": "T"})").key, key);
    EXPECT_NE(goodMovie(R"({"photos": ["q", "p"], "title": "T"})").key, key);
    EXPECT_NE(goodMovie(R"({"photos": ["p", "q"], "title": "U"})").key, key);
    EXPECT_NE(goodMovie(R"({"id": "photos", "photos": ["p", "q"], "title": "T"})").key, key);
}

TEST(ManifestLine, MayBeMadeInPieces)
{
    EXPECT_EQ(goodMovie(R"({"photos": ["p"]})").split, 1u);
    EXPECT_EQ(goodMovie(R"({"photos": ["p"], "split": 40})").split, 40u);
    EXPECT_EQ(goodMovie(R"({"photos": ["p"], "split": 40})").key, goodMovie(R"({"photos": ["p"]})").key)
        << "it is the same movie";
    for (const char* split : {"0", "1001", "2.5", "-1", "\"2\"", "true"})
        EXPECT_EQ(wrongFields(fmt::format(R"({{"photos": ["p"], "split": {}}})", split)), "split") << split;
}
