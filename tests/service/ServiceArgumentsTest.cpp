#include "service/ServiceArguments.h"

#include <gtest/gtest.h>

TEST(ServiceArguments, LeaveTheWatermarkToTheSettingsUnlessTheyNameIt)
{
    EXPECT_EQ(ServiceArguments::read({}).drawsWatermark, std::nullopt);
    EXPECT_EQ(ServiceArguments::read({"--watermark"}).drawsWatermark, true);
    EXPECT_EQ(ServiceArguments::read({"--no-watermark"}).drawsWatermark, false);
    EXPECT_EQ(ServiceArguments::read({"--no-watermark", "--watermark"}).drawsWatermark, true) << "the last one counts";
    for (const auto& arguments : {std::vector<std::string_view>{}, {"--watermark"}, {"--no-watermark"}})
        EXPECT_FALSE(ServiceArguments::read(arguments).answer);
}

TEST(ServiceArguments, TellTheHelpAndTheVersion)
{
    for (const char* argument : {"--help", "-h"}) {
        const auto answer = ServiceArguments::read({"--no-watermark", argument}).answer;
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->exitStatus, 0);
        EXPECT_TRUE(answer->text.starts_with("Usage: stillora-video-creator ")) << answer->text;
        EXPECT_NE(answer->text.find("systemd-socket-activate"), std::string::npos);
    }
    const auto version = ServiceArguments::read({"--version"}).answer;
    ASSERT_TRUE(version);
    EXPECT_EQ(version->exitStatus, 0);
    EXPECT_TRUE(version->text.starts_with("stillora-video-creator 0.")) << version->text;
}

TEST(ServiceArguments, RefuseWhatTheyDoNotKnow)
{
    for (const char* argument : {"--watermarks", "--no", "file", "", "-x"}) {
        const auto answer = ServiceArguments::read({argument, "--help"}).answer;
        ASSERT_TRUE(answer) << argument;
        EXPECT_EQ(answer->exitStatus, 2) << argument;
        EXPECT_TRUE(answer->text.starts_with(std::string("stillora-video-creator: there is no option ") + argument +
                                             "\nUsage: "))
            << answer->text;
    }
    EXPECT_EQ(ServiceArguments::read({"\x1b[2J\n"}).answer->text.find('\x1b'), std::string::npos);
}

TEST(ServiceArguments, NameTheDescriptorOfTheListOfFiles)
{
    EXPECT_EQ(ServiceArguments::read({"--watermark"}).fileList, std::nullopt);
    const ServiceArguments arguments = ServiceArguments::read({"--files", "4", "--watermark"});
    EXPECT_EQ(arguments.fileList, 4);
    EXPECT_EQ(arguments.drawsWatermark, true);
    EXPECT_FALSE(arguments.answer);
    for (const char* number : {"", "-1", "four", "4x", "99999999999"}) {
        const auto answer = ServiceArguments::read({"--files", number}).answer;
        ASSERT_TRUE(answer) << number;
        EXPECT_EQ(answer->exitStatus, 2) << number;
        EXPECT_TRUE(answer->text.starts_with(std::string("stillora-video-creator: --files takes the number of a "
                                                         "descriptor, not ") +
                                             number + "\nUsage: "))
            << answer->text;
    }
    EXPECT_TRUE(ServiceArguments::read({"--files"}).answer);
}

TEST(ServiceArguments, TellWhichPartOfAMovieIsMade)
{
    EXPECT_FALSE(ServiceArguments::read({"--watermark"}).part);
    const ServiceArguments arguments = ServiceArguments::read({"--part", "20/101", "--no-watermark"});
    ASSERT_TRUE(arguments.part);
    EXPECT_EQ(arguments.part->first, 20u);
    EXPECT_EQ(arguments.part->movieCount, 101u);
    EXPECT_FALSE(arguments.answer);
    for (const char* part : {"", "20", "20/", "/101", "21/101", "20/20", "20/19", "20/101x", "-2/5", "2 /5"}) {
        const auto answer = ServiceArguments::read({"--part", part}).answer;
        ASSERT_TRUE(answer) << part;
        EXPECT_EQ(answer->exitStatus, 2) << part;
        EXPECT_NE(answer->text.find("--part takes an even number and a larger one"), std::string::npos) << answer->text;
    }
    EXPECT_TRUE(ServiceArguments::read({"--part"}).answer);
}

TEST(ServiceArguments, NamePiecesInTheirOrder)
{
    const ServiceArguments arguments = ServiceArguments::read({"--piece", "/b.mov", "--piece", "/a.mov"});
    EXPECT_EQ(arguments.pieces, (std::vector<std::string>{"/b.mov", "/a.mov"}));
    EXPECT_FALSE(arguments.answer);
    EXPECT_TRUE(ServiceArguments::read({"--piece"}).answer);
    EXPECT_TRUE(ServiceArguments::read({"--piece", ""}).answer);
}

TEST(ServiceArguments, TellWhichFramesAreThoseOfAMovie)
{
    const ServiceArguments arguments = ServiceArguments::read({"--reuse", "0+3@1,5+1@0:/a: movie, old.mov"});
    EXPECT_FALSE(arguments.answer);
    ASSERT_TRUE(arguments.frameSource);
    EXPECT_EQ(arguments.frameSource->movie.path(), "/a: movie, old.mov");
    EXPECT_EQ(arguments.frameSource->frames, (std::map<size_t, size_t>{{0, 1}, {1, 2}, {2, 3}, {5, 0}}));
    for (const char* runs : {"", "0+3@1", "0+3@1:", ":/a.mov", "0+3:/a.mov", "0@3:/a.mov", "0+3@1,:/a.mov",
                             "-1+3@1:/a.mov", "0+3@x:/a.mov", "0+3@1,2+1@9:/a.mov", "0+99999999@0:/a.mov",
                             "99999999999999999999+1@0:/a.mov", "0+3@1 ,5+1@0:/a.mov"}) {
        const auto answer = ServiceArguments::read({"--reuse", runs}).answer;
        ASSERT_TRUE(answer) << runs;
        EXPECT_EQ(answer->exitStatus, 2) << runs;
        EXPECT_NE(answer->text.find("--reuse takes runs and a file"), std::string::npos) << answer->text;
    }
    EXPECT_TRUE(ServiceArguments::read({"--reuse"}).answer);
}
