#include "platform/files/NSFileManager.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestExport.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

using namespace platform;
using namespace testsound;
using namespace testexport;
using Status = AVAssetExportSessionStatus;

namespace {

class BadSound : public testing::Test {
protected:
    /// Expects an error that names the file, and that nothing was left.
    void expectRefused(const std::string& name, std::optional<CMTimeRange> range = std::nullopt)
    {
        SCOPED_TRACE(name);
        const auto before = filesBelow(folder_.path());
        const Export result = exportM4A(assetOf(folder_.url(name)), folder_.url("out.m4a"), range);
        expectFailed(result, folder_, before);
        ASSERT_TRUE(result.error);
        EXPECT_EQ(result.error->domain, kAVFoundationErrorDomain);
        EXPECT_NE(result.error->localizedDescription.find(name), std::string::npos)
            << result.error->localizedDescription;
    }

    /// The samples that come out.
    int64_t lengthOf(const std::string& name, std::optional<CMTimeRange> range = std::nullopt)
    {
        const NSURL output = folder_.url("out-" + std::to_string(++runs_) + ".m4a");
        expectExported(exportM4A(assetOf(folder_.url(name)), output, range));
        return AVURLAsset(output).duration().value;
    }

    void write(const std::string& name, const std::string& bytes) { writeBytes(folder_.path(name), bytes); }

    void writeSecond() { writeWav(folder_.path("t.wav"), makeTone(44100, 1, 44100)); }

    static CMTimeRange range(int64_t start, int64_t length)
    {
        return {CMTimeMake(start, 44100), CMTimeMake(length, 44100)};
    }

    TemporaryFolder folder_;
    int runs_ = 0;
};

TEST_F(BadSound, MissingFileIsRefused)
{
    const Export result = exportM4A(assetOf(folder_.url("missing.mp3")), folder_.url("out.m4a"));
    EXPECT_EQ(result.status, Status::Failed);
    ASSERT_TRUE(result.error);
    EXPECT_NE(result.error->localizedDescription.find("missing.mp3"), std::string::npos);
    EXPECT_TRUE(filesBelow(folder_.path()).empty());
}

TEST_F(BadSound, FileThatIsNoSoundIsRefused)
{
    write("text.mp3", "no music at all\n");
    write("zeros.m4a", std::string(100'000, '\0'));
    write("picture.wav", "\xFF\xD8\xFF\xE0" + std::string(5000, '\x55'));
    for (const char* name : {"text.mp3", "zeros.m4a", "picture.wav"})
        expectRefused(name);
}

TEST_F(BadSound, MovieWithoutASoundTrackIsRefused)
{
    outputOf("ffmpeg -nostdin -v error -f lavfi -i color=red:s=64x64:r=2 -frames:v 5 -c:v mjpeg " +
             shellWord(folder_.path("silent.mov")));
    expectRefused("silent.mov");
}

TEST_F(BadSound, FileOfNoLengthIsRefused)
{
    write("empty.mp3", "");
    write("empty.wav", "");
    write("nothing.wav", wavHeader(44100, 2, 0));
    for (const char* name : {"empty.mp3", "empty.wav", "nothing.wav"})
        expectRefused(name);
}

TEST_F(BadSound, RangePastTheEndIsRefusedAndOneAcrossItClipped)
{
    writeSecond();
    expectRefused("t.wav", range(44100, 44100));
    expectRefused("t.wav", range(9'000'000, 1));
    EXPECT_EQ(lengthOf("t.wav", range(44000, 9'000'000)), 100);
}

TEST_F(BadSound, RangeOfNoLengthIsRefused)
{
    writeSecond();
    expectRefused("t.wav", range(22050, 0));
}

TEST_F(BadSound, StartAfterTheEndIsRefused)
{
    writeSecond();
    expectRefused("t.wav", range(22050, -10000));
}

TEST_F(BadSound, MP3CutShortPlaysWhatItHolds)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 2, 10 * 44100));
    convertWithFFmpeg(folder_.path("t.wav"), "-b:a 128k", folder_.path("t.mp3"));
    const std::string bytes = readBytes(folder_.path("t.mp3"));
    for (const size_t part : {size_t{2}, size_t{3}, size_t{50}}) {
        SCOPED_TRACE(part);
        write("cut.mp3", bytes.substr(0, bytes.size() / part));
        EXPECT_NEAR(static_cast<double>(lengthOf("cut.mp3")), 441000.0 / double(part), 3 * 1152);
    }
    // Less than a frame.
    write("cut.mp3", bytes.substr(0, 300));
    expectRefused("cut.mp3");
}

TEST_F(BadSound, VariableRateWithoutAnIndexIsMeasuredByReadingIt)
{
    // Soft, then loud, so that no estimate is right.
    writeWav(folder_.path("t.wav"), makeSound(44100, 1, 441000, [](size_t frame, int) {
                 return frame < 220500 ? 0.0 : std::sin(double(frame) * double(frame) * 1e-6) * 0.9;
             }));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a libmp3lame -q:a 2 -write_xing 0", folder_.path("t.mp3"));
    EXPECT_NEAR(static_cast<double>(lengthOf("t.mp3")), 441000, 3 * 1152);
    const std::string bytes = readBytes(folder_.path("t.mp3"));
    write("cut.mp3", bytes.substr(0, bytes.size() - 20000));
    EXPECT_GT(lengthOf("cut.mp3"), 220500);
}

TEST_F(BadSound, WrongLengthInAWavHeaderGivesWayToTheFile)
{
    const std::string samples(44100 * 2, '\1');
    for (const uint32_t claimed : {0U, 88201U, 400'000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(claimed);
        write("t.wav", wavHeader(44100, 1, claimed) + samples);
        EXPECT_EQ(lengthOf("t.wav"), 44100);
    }
}

TEST_F(BadSound, ZeroHertzOrChannelsAreRefused)
{
    write("norate.wav", wavHeader(0, 2, 1000) + std::string(1000, '\1'));
    write("nochannels.wav", wavHeader(44100, 0, 1000) + std::string(1000, '\1'));
    for (const char* name : {"norate.wav", "nochannels.wav"})
        expectRefused(name);
}

TEST_F(BadSound, EightGigabytesClaimedOnAKilobyteGiveTheKilobyte)
{
    // The kind of WAV whose lengths have 64 bits.
    constexpr uint64_t kClaimed = uint64_t{8} << 30;
    std::string lengths;
    putLittleEndian(lengths, static_cast<uint32_t>(kClaimed + 64), 4);
    putLittleEndian(lengths, (kClaimed + 64) >> 32, 4);
    putLittleEndian(lengths, static_cast<uint32_t>(kClaimed), 4);
    putLittleEndian(lengths, kClaimed >> 32, 4);
    putLittleEndian(lengths, static_cast<uint32_t>(kClaimed / 4), 4);
    putLittleEndian(lengths, (kClaimed / 4) >> 32, 4);
    lengths += std::string(4, '\0');
    std::string bytes = wavHeader(44100, 2, 0xFFFFFFFFU);
    bytes.replace(0, 8, "RF64\xFF\xFF\xFF\xFF");
    std::string ds64 = "ds64";
    putLittleEndian(ds64, static_cast<uint32_t>(lengths.size()), 4);
    bytes.insert(12, ds64 + lengths);
    write("huge.wav", bytes + std::string(1024, '\1'));
    EXPECT_EQ(lengthOf("huge.wav"), 256);
    // As much as the plain kind can claim.
    write("large.wav", wavHeader(44100, 2, 0xFFFFFF00U) + std::string(1024, '\1'));
    EXPECT_EQ(lengthOf("large.wav"), 256);
}

/// Silence of so many hours that takes no room on the disk.
void writeHours(const std::string& path, int hours, uint32_t rateHz)
{
    const auto bytes = static_cast<uint32_t>(hours) * 3600U * rateHz * 2;
    writeBytes(path, wavHeader(rateHz, 1, bytes));
    ASSERT_EQ(truncate(path.c_str(), 44 + static_cast<off_t>(bytes)), 0);
}

TEST_F(BadSound, TenHoursTakeNoMoreMemoryThanAnHour)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "these builds keep what was freed";
#endif
    writeHours(folder_.path("1.wav"), 1, 8000);
    writeHours(folder_.path("10.wav"), 10, 8000);
    const auto peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    EXPECT_EQ(lengthOf("1.wav"), 3600LL * 8000);
    const long afterOne = peak();
    EXPECT_EQ(lengthOf("10.wav"), 36000LL * 8000);
    // In kB. What grows is the index: four bytes a packet, twice while it is written. How many parts of 8 MB are held
    // at once, of three at most, depends on how the processors are shared; the sound itself would take a gigabyte.
    EXPECT_LT(peak() - afterOne, 32'000);
}

TEST_F(BadSound, CancelOfALongConversionEndsAtOnce)
{
    writeHours(folder_.path("10.wav"), 10, 44100);
    AVAssetExportSession session(assetOf(folder_.url("10.wav")), std::string(kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(folder_.url("out.m4a"));
    session.exportAsynchronouslyWithCompletionHandler({});
    while (session.progress() <= 0 && !session.waitForEnd(0.001)) {
    }
    const auto start = std::chrono::steady_clock::now();
    session.cancelExport();
    // The whole takes minutes; the longest step between two looks is less than a second's.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(session.status(), Status::Cancelled);
    EXPECT_FALSE(session.error());
    EXPECT_EQ(filesBelow(folder_.path()), std::vector<std::string>{"10.wav"});
    // Once more does nothing.
    session.cancelExport();
    EXPECT_EQ(session.status(), Status::Cancelled);
}

TEST_F(BadSound, CancelRightAfterTheStartLeavesNothingInAnyStage)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 2, 60 * 44100));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a aac -b:a 96k", folder_.path("t.m4a"));
    const AVAssetPtr encoded = assetOf(folder_.url("t.wav"));
    const AVAssetPtr copied = assetOf(folder_.url("t.m4a"));
    const AVAssetPtr joined = endToEnd({folder_.url("t.m4a"), folder_.url("t.m4a")});
    struct Row {
        const char* name;
        AVAssetPtr asset;
        std::string_view preset;
    };
    for (const Row& row :
         {Row{"encoded", encoded, kAVAssetExportPresetAppleM4A}, Row{"copied", copied, kAVAssetExportPresetAppleM4A},
          Row{"joined", joined, kAVAssetExportPresetAppleM4A},
          Row{"passed through", copied, kAVAssetExportPresetPassthrough}}) {
        SCOPED_TRACE(row.name);
        AVAssetExportSession session(row.asset, std::string(row.preset));
        session.setOutputFileType(kAVFileTypeAppleM4A);
        session.setOutputURL(folder_.url("out.m4a"));
        session.exportAsynchronouslyWithCompletionHandler({});
        session.cancelExport();
        EXPECT_EQ(session.status(), Status::Cancelled);
        EXPECT_FALSE(session.error());
        EXPECT_EQ(filesBelow(folder_.path()).size(), 2U);
    }
}

} // namespace
