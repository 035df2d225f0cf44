#include "audio/MORAudioWaveImageMetadata.h"

#include "platform/foundation/NSBundle.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "platform/system/NSWorkspace.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"
#include "tests/support/TestTags.h"

#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace platform;
using namespace testtags;
using namespace MORAudioWaveImage;

/// Anything but a file, with tags as the test likes.
class TaggedAsset final : public AVAsset {
public:
    explicit TaggedAsset(AVMetadataItemList items) : items_(std::move(items)) {}

    CMTime duration() const override { return kCMTimeInvalid; }
    std::vector<AVAssetTrack> tracks() const override { return {}; }
    AVMetadataItemList commonMetadata() const override { return items_; }

private:
    const AVMetadataItemList items_;
};

AVMetadataItemPtr item(std::string_view keySpace, std::string_view key, std::string_view commonKey,
                       AVMetadataItem::Value value)
{
    return std::make_shared<AVMetadataItem>(
        AVMetadataItem{std::string(keySpace), std::string(key), std::string(commonKey), std::move(value)});
}

AVMetadataItemPtr id3(std::string_view key, std::string_view commonKey, AVMetadataItem::Value value)
{
    return item(kAVMetadataKeySpaceID3, key, commonKey, std::move(value));
}

AVMetadataItemPtr quickTime(std::string_view key, std::string_view commonKey, AVMetadataItem::Value value)
{
    return item(kAVMetadataKeySpaceQuickTimeMetadata, "com.apple.quicktime." + std::string(key), commonKey,
                std::move(value));
}

AVMetadataItemPtr iTunes(std::string_view key, std::string_view commonKey, AVMetadataItem::Value value)
{
    return item(kAVMetadataKeySpaceiTunes, key, commonKey, std::move(value));
}

std::string characters(const std::vector<uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

NSData picture(size_t width, size_t height, test::Color color = test::kRed)
{
    return test::jpegBytes(test::plain(width, height, color));
}

std::string mp3WithCover(const NSData& cover)
{
    return id3Tag(3, id3Frame(3, "APIC", id3Picture(characters(cover)))) + mp3Frames();
}

class MORAudioWaveImageMetadata : public testing::Test {
protected:
    AVURLAsset assetOf(std::string_view name, const std::string& bytes)
    {
        folder_.makeFile(name, bytes);
        return AVURLAsset(folder_.url(name));
    }

    TemporaryFolder folder_;
};

} // namespace

TEST_F(MORAudioWaveImageMetadata, FileWithAnEmptyID3TitleFrameAndAQuickTimeTitleFallsThroughToTheQuickTimeTitle)
{
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", ""), quickTime("title", "title", "Of QuickTime")})),
              "Of QuickTime");
}

TEST_F(MORAudioWaveImageMetadata, AssetWithNoTagsAndNoFileLocationYieldsTheLocalisedTexts)
{
    const AVMutableComposition composition;
    // Without catalogues the keys stand for the texts.
    EXPECT_EQ(audioTrackTitle(composition), "UnknownTitle");
    EXPECT_EQ(audioTrackAlbum(composition), "UnknownAlbum");
    EXPECT_EQ(audioTrackArtist(composition), "UnknownArtist");
}

TEST_F(MORAudioWaveImageMetadata, TaglessFileYieldsItsFileNameExtensionIncludedAsTitle)
{
    const AVURLAsset asset = assetOf("My song.v2.mp3", mp3Frames());
    EXPECT_EQ(audioTrackTitle(asset), "My song.v2.mp3");
    EXPECT_EQ(audioTrackAlbum(asset), "UnknownAlbum");
    EXPECT_EQ(audioTrackArtist(asset), "UnknownArtist");
}

TEST_F(MORAudioWaveImageMetadata, CoverStoredAsADictionaryWithADataEntryIsDecodedFromThatEntry)
{
    const AVMetadataItem::Dictionary dictionary = {{"MIME", std::string("image/jpeg")}, {"data", picture(30, 20)}};
    const NSImagePtr image = audioTrackCoverImage(TaggedAsset({id3("APIC", "artwork", dictionary)}));
    ASSERT_NE(image, nullptr);
    ASSERT_NE(image->image(), nullptr);
    EXPECT_EQ(image->image()->width, 30U);
    EXPECT_EQ(image->image()->height, 20U);
}

TEST_F(MORAudioWaveImageMetadata, SecondCoverRequestForTheSameLocationIsAnsweredFromTheCache)
{
    const NSImagePtr first = audioTrackCoverImage(assetOf("a.mp3", mp3WithCover(picture(30, 20))));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->image()->width, 30U);
    EXPECT_EQ(audioTrackCoverImage(assetOf("a.mp3", mp3WithCover(picture(50, 50)))), first);
    // Another location has its own.
    const NSImagePtr other = audioTrackCoverImage(assetOf("b.mp3", mp3WithCover(picture(50, 50))));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->image()->width, 50U);
}

TEST_F(MORAudioWaveImageMetadata, TitleIsLookedForInItsOrder)
{
    AVMetadataItemList items = {iTunes(kAVMetadataiTunesMetadataKeySongName, "title", "Of iTunes"),
                                quickTime("title", "title", "Of QuickTime"), id3("TIT2", "title", "Of ID3")};
    EXPECT_EQ(audioTrackTitle(TaggedAsset(items)), "Of ID3");
    items.pop_back();
    EXPECT_EQ(audioTrackTitle(TaggedAsset(items)), "Of QuickTime");
    items.pop_back();
    EXPECT_EQ(audioTrackTitle(TaggedAsset(items)), "Of iTunes");
}

TEST_F(MORAudioWaveImageMetadata, AlbumIsLookedForInItsOrder)
{
    AVMetadataItemList items = {iTunes(kAVMetadataiTunesMetadataKeyAlbum, "albumName", "Of iTunes"),
                                quickTime("album", "albumName", "Of QuickTime"), id3("TALB", "albumName", "Of ID3")};
    EXPECT_EQ(audioTrackAlbum(TaggedAsset(items)), "Of ID3");
    items.pop_back();
    EXPECT_EQ(audioTrackAlbum(TaggedAsset(items)), "Of QuickTime");
    items.pop_back();
    EXPECT_EQ(audioTrackAlbum(TaggedAsset(items)), "Of iTunes");
}

TEST_F(MORAudioWaveImageMetadata, ArtistIsLookedForInItsOrder)
{
    AVMetadataItemList items = {iTunes(kAVMetadataiTunesMetadataKeyArtist, "artist", "Of iTunes"),
                                quickTime("artist", "artist", "Of QuickTime"),
                                id3("TPE4", "", "Remixer"),
                                id3("TPE3", "", "Conductor"),
                                id3("TPE2", "", "Band"),
                                id3("TPE1", "artist", "Performer"),
                                id3("TOPE", "contributor", "Original")};
    for (const char* expected :
         {"Original", "Performer", "Band", "Conductor", "Remixer", "Of QuickTime", "Of iTunes"}) {
        EXPECT_EQ(audioTrackArtist(TaggedAsset(items)), expected);
        items.pop_back();
    }
}

TEST_F(MORAudioWaveImageMetadata, OriginalArtistOfAFileWinsOverItsPerformerAndItsBandIsNotAsked)
{
    const auto artistOf = [&](const std::string& name, const std::string& frames) {
        return audioTrackArtist(assetOf(name, id3Tag(4, frames) + mp3Frames()));
    };
    EXPECT_EQ(artistOf("a.mp3", id3Text(4, "TPE1", "Performer") + id3Text(4, "TOPE", "Original")), "Original");
    EXPECT_EQ(artistOf("b.mp3", id3Text(4, "TPE2", "Band") + id3Text(4, "TPE3", "Conductor")), "UnknownArtist");
}

TEST_F(MORAudioWaveImageMetadata, FirstItemOfAKeyCounts)
{
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", "One"), id3("TIT2", "title", "Two")})), "One");
    // Also if it is empty: the next key is asked, and not the next item.
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", ""), id3("TIT2", "title", "Two"),
                                           quickTime("title", "title", "Of QuickTime")})),
              "Of QuickTime");
}

TEST_F(MORAudioWaveImageMetadata, EmptyTextOfTheLastKeyIsTaken)
{
    EXPECT_EQ(audioTrackTitle(assetOf("a.m4a", m4aWithItems(box("\xA9nam", dataBox(""))))), "");
    EXPECT_EQ(audioTrackAlbum(TaggedAsset({iTunes(kAVMetadataiTunesMetadataKeyAlbum, "albumName", "")})), "");
    EXPECT_EQ(audioTrackArtist(TaggedAsset({iTunes(kAVMetadataiTunesMetadataKeyArtist, "artist", "")})), "");
    // Without a value there is none.
    EXPECT_EQ(audioTrackTitle(TaggedAsset({iTunes(kAVMetadataiTunesMetadataKeySongName, "title", {})})),
              "UnknownTitle");
}

TEST_F(MORAudioWaveImageMetadata, EmptyTitleOfAnMP3GivesItsFileName)
{
    EXPECT_EQ(audioTrackTitle(assetOf("a.mp3", id3Tag(3, id3Text(3, "TIT2", "")) + mp3Frames())), "a.mp3");
}

TEST_F(MORAudioWaveImageMetadata, TagsOfFreeFormatsAreFoundByTheirCommonKey)
{
    const AVURLAsset asset =
        assetOf("a.flac", flacWith(flacBlock(4, vorbisComments({"TITLE=Title", "ARTIST=Artist", "ALBUM=Album"}))));
    EXPECT_EQ(audioTrackTitle(asset), "Title");
    EXPECT_EQ(audioTrackArtist(asset), "Artist");
    EXPECT_EQ(audioTrackAlbum(asset), "Album");
}

TEST_F(MORAudioWaveImageMetadata, ValuesThatAreNoTextsAreToldAsFarAsTheyAre)
{
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", 1984.0)})), "1984");
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", NSData{'a', 'b'})})), "ab");
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", NSData{0xFF, 0xFE})})), "UnknownTitle");
    EXPECT_EQ(audioTrackTitle(TaggedAsset({id3("TIT2", "title", AVMetadataItem::Dictionary{})})), "UnknownTitle");
}

TEST_F(MORAudioWaveImageMetadata, CoverIsLookedForInItsOrder)
{
    AVMetadataItemList items = {iTunes(kAVMetadataiTunesMetadataKeyCoverArt, "", NSData{3}),
                                id3("APIC", "artwork", NSData{2}), quickTime("artwork", "artwork", NSData{1})};
    EXPECT_EQ(audioTrackCoverData(TaggedAsset(items)), NSData{1});
    items.pop_back();
    EXPECT_EQ(audioTrackCoverData(TaggedAsset(items)), NSData{2});
    items.pop_back();
    EXPECT_EQ(audioTrackCoverData(TaggedAsset(items)), NSData{3});
    EXPECT_EQ(audioTrackCoverData(TaggedAsset({})), std::nullopt);
}

TEST_F(MORAudioWaveImageMetadata, CoverWithoutAValueIsPassedOver)
{
    EXPECT_EQ(audioTrackCoverData(TaggedAsset({quickTime("artwork", "", {}), id3("APIC", "artwork", NSData{2})})),
              NSData{2});
    EXPECT_EQ(audioTrackCoverData(TaggedAsset({id3("APIC", "artwork", {})})), std::nullopt);
    EXPECT_EQ(audioTrackCoverData(TaggedAsset({id3("APIC", "artwork", "text")})), std::nullopt);
    EXPECT_EQ(audioTrackCoverData(TaggedAsset({id3("APIC", "artwork", AVMetadataItem::Dictionary{})})), std::nullopt);
}

TEST_F(MORAudioWaveImageMetadata, CoverThatIsNoPictureGivesTheIconOfTheFile)
{
    const AVURLAsset asset = assetOf("no-picture.mp3", mp3WithCover({'n', 'o', 'n', 'e'}));
    EXPECT_EQ(audioTrackCoverImage(asset), NSWorkspace::sharedWorkspace().iconForFile(asset.URL().path()));
    // Without a file there is none.
    EXPECT_EQ(audioTrackCoverImage(TaggedAsset({id3("APIC", "artwork", NSData{'n'})})), nullptr);
}

TEST_F(MORAudioWaveImageMetadata, FileWithoutACoverHasItsIcon)
{
    const AVURLAsset asset = assetOf("no-cover.mp3", mp3Frames());
    const NSImagePtr icon = audioTrackCoverImage(asset);
    ASSERT_NE(icon, nullptr);
    EXPECT_EQ(icon, NSWorkspace::sharedWorkspace().iconForFile(asset.URL().path()));
    // It is kept for the location too.
    EXPECT_EQ(audioTrackCoverImage(assetOf("no-cover.mp3", mp3WithCover(picture(30, 20)))), icon);
}

TEST_F(MORAudioWaveImageMetadata, CoverOfWhatIsNoFileIsNotKept)
{
    const TaggedAsset asset({id3("APIC", "artwork", picture(30, 20))});
    const NSImagePtr first = audioTrackCoverImage(asset);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(audioTrackCoverImage(asset), first);
}

TEST_F(MORAudioWaveImageMetadata, IsForAnyThread)
{
    folder_.makeFile(
        "a.mp3", id3Tag(3, id3Text(3, "TIT2", "Title") + id3Frame(3, "APIC", id3Picture(characters(picture(30, 20))))) +
                     mp3Frames());
    const AVURLAsset shared(folder_.url("a.mp3"));
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 20; ++j) {
                EXPECT_EQ(audioTrackTitle(shared), "Title");
                EXPECT_NE(audioTrackCoverImage(AVURLAsset(folder_.url("a.mp3"))), nullptr);
            }
        });
}

TEST_F(MORAudioWaveImageMetadata, TextsForWhatIsNotKnownAreInTheUsersLanguage)
{
    // In a process of its own, as catalogues are chosen once.
    EXPECT_EXIT(
        {
            setenv("LANGUAGE", "de", 1);
            NSBundle::mainBundle().setLocalizations(STILLORA_LOCALE_FOLDER, "stillora");
            const AVMutableComposition composition;
            const bool isGerman = audioTrackTitle(composition) == "Unbekannter Titel" &&
                                  audioTrackAlbum(composition) == "Unbekanntes Album" &&
                                  audioTrackArtist(composition) == "Unbekannter Interpret";
            _exit(isGerman ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
