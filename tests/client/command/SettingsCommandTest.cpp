#include "client/command/SettingsCommand.h"

#include <stillora/Movie.h>

#include "client/command/making/RememberedSettings.h"
#include "client/command/terminal/ExitStatus.h"
#include "platform/files/NSUserDefaults.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

struct Said {
    int status = 0;
    std::string out;
    std::string err;
};

class SettingsCommand : public testing::Test {
protected:
    static Said run(int (*command)(const std::vector<std::string>&), const std::vector<std::string>& arguments)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Said result;
        result.status = command(arguments);
        result.out = testing::internal::GetCapturedStdout();
        result.err = testing::internal::GetCapturedStderr();
        return result;
    }
    static Said set(const std::vector<std::string>& arguments) { return run(runSetCommand, arguments); }
    static Said settings(const std::vector<std::string>& arguments = {}) { return run(runSettingsCommand, arguments); }

    const TemporaryFolder folder_;
    const EnvironmentVariable config_{"XDG_CONFIG_HOME", folder_.path("config")};
    const EnvironmentVariable home_{"HOME", folder_.path("home")};
};

} // namespace

TEST_F(SettingsCommand, KeepsWhatIsChosenUntilItIsTakenBack)
{
    EXPECT_EQ(settings({"--json"}).out,
              "{\"save\": null, \"quality\": null, \"seconds\": null, \"codec\": null, \"watermark\": null, "
              "\"language\": null}\n");
    const std::string place = folder_.makeFolder("Rome\nand \xff");
    EXPECT_EQ(settings().out, "save       not set\nquality    not set\nseconds    not set\ncodec      not set\n"
                              "watermark  not set\nlanguage   not set\n");
    for (const auto& [key, value] : {std::pair<std::string, std::string>{"save", place},
                                     {"quality", "1080"},
                                     {"seconds", "2.5"},
                                     {"codec", "hvc1"},
                                     {"watermark", "off"},
                                     {"language", "fr"}}) {
        const Said result = set({key, value});
        EXPECT_EQ(result.status, kExitDone) << key;
        EXPECT_EQ(result.out + result.err, "") << key;
        EXPECT_EQ(RememberedSettings::value(key), value) << key;
    }
    EXPECT_THAT(settings({"--json"}).out,
                HasSubstr("\"quality\": \"1080\", \"seconds\": 2.5, \"codec\": \"hvc1\", \"watermark\": false, "
                          "\"language\": \"fr\"}\n"));
    const auto saveFolderWithVideos = [&] {
        const EnvironmentVariable videos("XDG_VIDEOS_DIR", folder_.path("home/Filme"));
        return usualSaveFolder();
    };
    EXPECT_EQ(usualSaveFolder(), place);
    EXPECT_EQ(saveFolderWithVideos(), place);
    for (const std::string& key : RememberedSettings::names()) {
        EXPECT_EQ(set({key}).status, kExitDone) << key;
        EXPECT_EQ(RememberedSettings::value(key), std::nullopt) << key;
    }
    EXPECT_EQ(saveFolderWithVideos(), folder_.path("home/Filme/Stillora"));
    EXPECT_FALSE(std::filesystem::exists(folder_.path("home/Movies"))) << "nothing is made that is not used";
    EXPECT_EQ(usualSaveFolder(), folder_.path("home/Movies/Stillora"));
}

TEST_F(SettingsCommand, RefusesWhatCannotBeSet)
{
    const std::string file = folder_.makeFile("file", "");
    const struct {
        std::vector<std::string> arguments;
        std::string sentence;
    } rows[] = {
        {{}, "set save, quality, seconds, codec, watermark, language?"},
        {{"height", "3"}, "there is no setting height: they are save, quality, seconds, codec, watermark, language"},
        {{"quality", "1000"}, "stillora: quality takes auto, "},
        {{"seconds", "0"}, "stillora: seconds takes a number from 0.01"},
        {{"codec", ""}, "stillora: codec takes avc1"},
        {{"watermark", "maybe"}, "watermark takes on or off, not \"maybe\""},
        {{"language", "it"}, "language takes de, en, fr, not \"it\""},
        {{"save", folder_.path("gone")}, "is there, not \"" + folder_.path("gone")},
        {{"save", file}, "is there, not \"" + file},
        {{"codec", "avc1", "hvc1"}, "one value is taken, and hvc1 is another argument"},
        {{"codec", "--json"}, "there is no option --json"},
    };
    for (const auto& row : rows) {
        const Said result = set(row.arguments);
        EXPECT_EQ(result.status, kExitUsage) << row.sentence;
        EXPECT_THAT(result.err, AllOf(HasSubstr(row.sentence), HasSubstr("Try 'stillora set --help'")));
    }
    EXPECT_FALSE(std::filesystem::exists(folder_.path("config/stillora/defaults.plist")));
    EXPECT_EQ(settings({"codec"}).status, kExitUsage);
}

TEST_F(SettingsCommand, SaysThatNothingCouldBeWritten)
{
    const EnvironmentVariable config{"XDG_CONFIG_HOME", folder_.makeFile("no folder", "")};
    EXPECT_EQ(set({"codec", "jpeg"}).status, kExitFailed);
    EXPECT_THAT(set({"codec"}).err, HasSubstr("the settings could not be written"));
}

TEST_F(SettingsCommand, CompletesWhatTheOptionsLeaveOpen)
{
    EXPECT_EQ(set({"quality", "720"}).status + set({"seconds", "3"}).status + set({"codec", "jpeg"}).status, 0);
    CreateOptions options;
    EXPECT_THAT(RememberedSettings::complete(options), IsEmpty());
    EXPECT_EQ(options.quality, 720);
    EXPECT_EQ(options.seconds, 3s);
    EXPECT_EQ(options.codec, "jpeg");

    CreateOptions given;
    given.seconds = 5s;
    given.quality = 240;
    given.codec = "hvc1";
    given.isQualityGiven = given.isCodecGiven = true;
    EXPECT_THAT(RememberedSettings::complete(given), IsEmpty());
    EXPECT_EQ(given.quality, 240);
    EXPECT_EQ(given.seconds, 5s);
    EXPECT_EQ(given.codec, "hvc1");

    CreateOptions fitting;
    fitting.fitsMusic = true;
    EXPECT_THAT(RememberedSettings::complete(fitting), IsEmpty());
    EXPECT_EQ(fitting.seconds, std::nullopt) << "the music chooses them";
}

TEST_F(SettingsCommand, NamesAKeptValueThatCannotBeUsed)
{
    ASSERT_TRUE(platform::NSUserDefaults::standardUserDefaults().setObjectForKey(std::string("mp4v"), "codec"));
    CreateOptions options;
    const auto faults = RememberedSettings::complete(options);
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_THAT(faults[0], AllOf(HasSubstr("the setting codec is not looked at"), HasSubstr("mp4v")));
    EXPECT_EQ(options.codec, "avc1");
}
