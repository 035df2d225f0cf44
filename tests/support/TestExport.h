#pragma once

#include "platform/media/AVAssetExportSession.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What tests of exported sound share.
namespace testexport {

using platform::AVAssetExportSession;
using platform::AVAssetExportSessionStatus;
using platform::AVAssetPtr;
using platform::AVMutableAudioMix;
using platform::AVMutableComposition;
using platform::AVURLAsset;
using platform::AVURLAssetPtr;
using platform::CMTimeRange;
using platform::NSError;
using platform::NSURL;

inline constexpr double kDeadline = 120;

struct Export {
    AVAssetExportSessionStatus status = AVAssetExportSessionStatus::Unknown;
    std::optional<NSError> error;
    float progress = 0;
};

/// Exports sound as AAC and waits for the end.
inline Export exportM4A(const AVAssetPtr& asset, const NSURL& output, std::optional<CMTimeRange> range = std::nullopt,
                        std::optional<AVMutableAudioMix> mix = std::nullopt,
                        std::string_view preset = platform::kAVAssetExportPresetAppleM4A)
{
    AVAssetExportSession session(asset, std::string(preset));
    session.setOutputFileType(platform::kAVFileTypeAppleM4A);
    session.setOutputURL(output);
    if (range)
        session.setTimeRange(*range);
    if (mix)
        session.setAudioMix(*mix);
    session.exportAsynchronouslyWithCompletionHandler({});
    EXPECT_TRUE(session.waitForEnd(kDeadline));
    return {session.status(), session.error(), session.progress()};
}

inline void expectExported(const Export& result)
{
    EXPECT_EQ(result.status, AVAssetExportSessionStatus::Completed)
        << (result.error ? result.error->localizedDescription : "");
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.progress, 1);
}

inline void expectFailed(const Export& result, const TemporaryFolder& folder,
                         const std::vector<std::string>& filesBefore)
{
    EXPECT_EQ(result.status, AVAssetExportSessionStatus::Failed);
    ASSERT_TRUE(result.error);
    EXPECT_FALSE(result.error->localizedDescription.empty());
    EXPECT_EQ(testsound::filesBelow(folder.path()), filesBefore);
}

inline AVURLAssetPtr assetOf(const NSURL& url)
{
    return AVURLAsset::URLAssetWithURL(url);
}

/// Puts whole files one after another, each on its own track.
inline std::shared_ptr<AVMutableComposition> endToEnd(const std::vector<NSURL>& urls)
{
    auto composition = AVMutableComposition::composition();
    double cursor = 0;
    for (const NSURL& url : urls) {
        const auto asset = assetOf(url);
        auto& track = composition->addMutableTrackWithMediaType(platform::kAVMediaTypeAudio, 0);
        EXPECT_TRUE(track.insertTimeRange({platform::kCMTimeZero, asset->duration()},
                                          asset->compatibleTrackForCompositionTrack(track.asAssetTrack()),
                                          platform::CMTimeMakeWithSeconds(cursor, asset->duration().timescale)));
        cursor += platform::CMTimeGetSeconds(asset->duration());
    }
    return composition;
}

} // namespace testexport
