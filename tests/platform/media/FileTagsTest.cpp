#include "platform/media/FileTags.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"
#include "tests/support/TestTags.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <taglib/aifffile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>

namespace {

using namespace platform;
using namespace testtags;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPicture = "\xFF\xD8\xFF\xE0 picture \xFF\xE0 with what looks like sound \xFF\x00";

/// "key space/key=value", as short as it can be compared.
std::string described(const AVMetadataItem& item)
{
    std::string value = "nothing";
    if (const std::string* text = item.stringValue())
        value = *text;
    else if (const NSData* data = item.dataValue())
        value = "<" + std::to_string(data->size()) + ">";
    else if (const double* number = std::get_if<double>(&item.value))
        value = "number " + std::to_string(*number);
    return item.keySpace + "/" + item.key + "=" + value;
}

class FileTags : public testing::Test {
protected:
    std::vector<std::string> tagsOf(const std::string& bytes) { return tagsAt(folder_.makeFile("file", bytes)); }

    std::vector<std::string> tagsAt(const std::string& path)
    {
        std::vector<std::string> all;
        for (const AVMetadataItemPtr& item : readFileTags(NSURL::fileURLWithPath(path)))
            all.push_back(described(*item));
        return all;
    }

    /// The value of the first item of a common key; empty if there is none.
    std::string common(const std::string& path, std::string_view key)
    {
        const auto found = AVMetadataItem::metadataItemsFromArray(readFileTags(NSURL::fileURLWithPath(path)), key,
                                                                  kAVMetadataKeySpaceCommon);
        if (found.empty())
            return {};
        if (const NSData* data = found.front()->dataValue())
            return {data->begin(), data->end()};
        return found.front()->stringValue() ? *found.front()->stringValue() : std::string();
    }

    /// A short file of sound without tags.
    std::string makeSound(const std::string& name, const std::string& options = "")
    {
        const std::string wav = folder_.path("source.wav");
        testsound::writeWav(wav, testsound::makeTone(44100, 2, 8820));
        testsound::convertWithFFmpeg(wav, "-map_metadata -1 " + options, folder_.path(name));
        return folder_.path(name);
    }

    TemporaryFolder folder_;
};

std::string utf16(const std::u16string& text, bool isBig)
{
    std::string bytes;
    for (const char16_t unit : text)
        bytes += isBig ? bigEndian(unit, 2) : littleEndian(unit, 2);
    return bytes;
}

constexpr const char* kFFmpegTags = " -metadata title='Grüße aus Köln' -metadata artist='Größte Künstler' "
                                    "-metadata album='Süßes Album' ";

} // namespace

// What is common.

TEST_F(FileTags, KeepsTheFramesThatStandForSomethingCommonInTheirOrder)
{
    std::string frames;
    for (const char* name : {"TPE2", "TOPE", "TPE1", "TSSE", "TIT2", "TALB", "TYER", "TPE3", "TPE4", "TLEN", "TXXX",
                             "TCOM", "TIT1", "TIT3", "TPUB", "TCON", "TCOP", "TEXT"})
        frames += id3Text(3, name, std::string("of ") + name);
    frames += id3Frame(3, "APIC", id3Picture("12345"));
    EXPECT_THAT(tagsOf(id3Tag(3, frames) + mp3Frames()),
                ElementsAre("org.id3/TOPE=of TOPE", "org.id3/TPE1=of TPE1", "org.id3/TIT2=of TIT2",
                            "org.id3/TALB=of TALB", "org.id3/TCOM=of TCOM", "org.id3/TIT1=of TIT1",
                            "org.id3/TIT3=of TIT3", "org.id3/TPUB=of TPUB", "org.id3/TCON=of TCON",
                            "org.id3/TCOP=of TCOP", "org.id3/TEXT=of TEXT", "org.id3/APIC=<5>"));
}

TEST_F(FileTags, GiveEachFrameTheCommonKeyItStandsFor)
{
    std::string frames;
    for (const char* name : {"TIT2", "TALB", "TPE1", "TOPE", "TCOM", "TIT1", "TIT3", "TPUB", "TCON", "TCOP", "TEXT"})
        frames += id3Text(4, name, "x");
    folder_.makeFile("a.mp3", id3Tag(4, frames + id3Frame(4, "APIC", id3Picture("12345"))));
    std::vector<std::string> keys;
    for (const AVMetadataItemPtr& item : AVURLAsset(folder_.url("a.mp3")).commonMetadata())
        keys.push_back(item->commonKey);
    EXPECT_THAT(keys, ElementsAre("title", "albumName", "artist", "contributor", "creator", "subject", "description",
                                  "publisher", "type", "copyrights", "author", "artwork"));
}

TEST_F(FileTags, OfITunesGiveTitleArtistAlbumCoverAndProgramInTheirOrder)
{
    std::string items;
    for (const char* key : {"\xA9"
                            "day",
                            "covr", "aART",
                            "\xA9"
                            "too",
                            "desc",
                            "\xA9"
                            "alb",
                            "\xA9"
                            "ART",
                            "\xA9"
                            "nam",
                            "tvsh", "ldes"})
        items += box(key, dataBox("value", std::string_view(key) == "covr" ? 13 : 1));
    const std::string path = folder_.makeFile("a.m4a", m4aWithItems(items));
    EXPECT_THAT(tagsAt(path), ElementsAre("itsk/covr=<5>",
                                          "itsk/\xA9"
                                          "too=value",
                                          "itsk/\xA9"
                                          "alb=value",
                                          "itsk/\xA9"
                                          "ART=value",
                                          "itsk/\xA9"
                                          "nam=value"));
    std::vector<std::string> keys;
    for (const AVMetadataItemPtr& item : readFileTags(NSURL::fileURLWithPath(path)))
        keys.push_back(item->commonKey);
    EXPECT_THAT(keys, ElementsAre("artwork", "software", "albumName", "artist", "title"));
}

TEST_F(FileTags, OfQuickTimeAreReadByTheirKeys)
{
    EXPECT_THAT(tagsOf(movieWithKeys({{"com.apple.quicktime.artwork", "12345", 13},
                                      {"com.apple.quicktime.title", "Title"},
                                      {"com.apple.quicktime.software", "1.0"},
                                      {"com.apple.quicktime.artist", "Artist"},
                                      {"com.apple.quicktime.album", "Album"}})),
                ElementsAre("mdta/com.apple.quicktime.artwork=<5>", "mdta/com.apple.quicktime.title=Title",
                            "mdta/com.apple.quicktime.artist=Artist", "mdta/com.apple.quicktime.album=Album"));
}

TEST_F(FileTags, KeepTheOrderOfTheFileWhenAKeyStandsTwice)
{
    EXPECT_THAT(tagsOf(id3Tag(4, id3Text(4, "TIT2", "z first") + id3Text(4, "TIT2", "a second"))),
                ElementsAre("org.id3/TIT2=z first", "org.id3/TIT2=a second"));
    EXPECT_THAT(tagsOf(m4aWithItems(box("\xA9nam", dataBox("z first")) + box("\xA9nam", dataBox("a second")))),
                ElementsAre("itsk/\xA9nam=z first", "itsk/\xA9nam=a second"));
    EXPECT_THAT(tagsOf(id3Tag(3, id3Text(3, "TIT2", "of the first tag")) +
                       id3Tag(4, id3Text(4, "TIT2", "of the second")) + mp3Frames()),
                ElementsAre("org.id3/TIT2=of the first tag", "org.id3/TIT2=of the second"));
}

TEST_F(FileTags, OfAnAssetAreReadOnce)
{
    folder_.makeFile("a.mp3", id3Tag(4, id3Text(4, "TIT2", "before")));
    const AVURLAsset asset(folder_.url("a.mp3"));
    ASSERT_EQ(asset.commonMetadata().size(), 1U);
    folder_.makeFile("a.mp3", id3Tag(4, id3Text(4, "TIT2", "after")));
    EXPECT_EQ(*asset.commonMetadata().front()->stringValue(), "before");
}

// ID3.

TEST_F(FileTags, OfVersion22GetTheNamesOfVersion23)
{
    const std::string picture = zeros(1) + "JPG" + "\x03" + "front" + zeros(1) + "12345";
    EXPECT_THAT(
        tagsOf(id3Tag(2, id3Text(2, "TT2", "Title") + id3Text(2, "TP1", "Artist") + id3Text(2, "TP2", "Band") +
                             id3Text(2, "TAL", "Album") + id3Text(2, "TOA", "Original") + id3Frame(2, "PIC", picture)) +
               mp3Frames()),
        ElementsAre("org.id3/TIT2=Title", "org.id3/TPE1=Artist", "org.id3/TALB=Album", "org.id3/TOPE=Original",
                    "org.id3/APIC=<5>"));
}

TEST_F(FileTags, OfShortNamesInALaterVersionAreRead)
{
    EXPECT_THAT(tagsOf(id3Tag(3, id3Text(3, std::string("TT2\0", 4), "Title"))), ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, AreReadInEveryEncodingOfText)
{
    const std::u16string text = u"Grüße 東京 \U0001F3B5";
    const std::string expected = "org.id3/TIT2=Grüße 東京 🎵";
    const auto tag = [](const std::string& content) { return id3Tag(4, id3Frame(4, "TIT2", content)); };
    EXPECT_THAT(tagsOf(tag("\x01\xFF\xFE" + utf16(text, false))), ElementsAre(expected));
    EXPECT_THAT(tagsOf(tag("\x01\xFE\xFF" + utf16(text, true))), ElementsAre(expected));
    EXPECT_THAT(tagsOf(tag("\x02" + utf16(text, true))), ElementsAre(expected));
    EXPECT_THAT(tagsOf(tag("\x03Grüße 東京 🎵")), ElementsAre(expected));
    EXPECT_THAT(tagsOf(tag(zeros(1) + "Gr\xFC\xDF"
                                      "e")),
                ElementsAre("org.id3/TIT2=Grüße"));
}

TEST_F(FileTags, OfUTF16WithoutItsMarkAreReadInTheLikelyOrder)
{
    for (const std::u16string text : {u"Hello there", u"Привет, мир", u"東京の夜 東京の朝"})
        for (const bool isBig : {false, true}) {
            const auto marked = tagsOf(id3Tag(3, id3Frame(3, "TIT2", "\x01\xFE\xFF" + utf16(text, true))));
            EXPECT_EQ(tagsOf(id3Tag(3, id3Frame(3, "TIT2", "\x01" + utf16(text, isBig)))), marked) << isBig;
        }
}

TEST_F(FileTags, OfBrokenUTF16AndUTF8ReplaceWhatIsNoCharacter)
{
    EXPECT_THAT(tagsOf(id3Tag(3, id3Frame(3, "TIT2", "\x01\xFF\xFE" + utf16({u'a', 0xD800, u'b'}, false) + "c"))),
                ElementsAre("org.id3/TIT2=a\uFFFDb"));
    EXPECT_THAT(tagsOf(id3Tag(4, id3Frame(4, "TIT2",
                                          "\x03"
                                          "a\xFF"
                                          "b"))),
                ElementsAre("org.id3/TIT2=a\uFFFDb"));
}

TEST_F(FileTags, OfSeveralValuesGiveTheFirst)
{
    EXPECT_THAT(tagsOf(id3Tag(4, id3Text(4, "TPE1", "One" + zeros(1) + "Two"))), ElementsAre("org.id3/TPE1=One"));
    EXPECT_THAT(tagsOf(id3Tag(4, id3Frame(4, "TPE1", "\x02" + utf16(u"One", true) + zeros(2) + utf16(u"Two", true)))),
                ElementsAre("org.id3/TPE1=One"));
}

TEST_F(FileTags, OfAnEmptyTitleFrameHaveAnEmptyTitle)
{
    EXPECT_THAT(tagsOf(id3Tag(3, id3Text(3, "TIT2", "") + id3Frame(3, "TALB", "") + id3Text(3, "TPE1", "Artist"))),
                ElementsAre("org.id3/TIT2=", "org.id3/TALB=", "org.id3/TPE1=Artist"));
}

TEST_F(FileTags, AreReadBehindAnExtendedHeader)
{
    EXPECT_THAT(tagsOf(id3Tag(3, bigEndian(6, 4) + zeros(6) + id3Text(3, "TIT2", "Title"), 0x40)),
                ElementsAre("org.id3/TIT2=Title"));
    EXPECT_THAT(tagsOf(id3Tag(4, syncSafe(6) + "\x01" + zeros(1) + id3Text(4, "TIT2", "Title"), 0x40)),
                ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfAPictureAreGivenByteForByte)
{
    folder_.makeFile("a.mp3", id3Tag(3, id3Frame(3, "APIC", id3Picture(kPicture))));
    EXPECT_EQ(common(folder_.path("a.mp3"), "artwork"), kPicture);
    const std::string wide = "\x01image/png" + zeros(1) + "\x03\xFF\xFE" + utf16(u"front", false) + zeros(2);
    folder_.makeFile("b.mp3", id3Tag(4, id3Frame(4, "APIC", wide + kPicture)));
    EXPECT_EQ(common(folder_.path("b.mp3"), "artwork"), kPicture);
}

TEST_F(FileTags, OfAnAddressInPlaceOfAPictureHaveNoPicture)
{
    EXPECT_THAT(tagsOf(id3Tag(3, id3Frame(3, "APIC", id3Picture("http://example.org/a.jpg", "-->")))), IsEmpty());
}

TEST_F(FileTags, AreFreedOfTheZerosThatKeepPlayersInStep)
{
    const std::string plain = id3Frame(3, "APIC", id3Picture(kPicture)) + id3Text(3, "TIT2", "Title");
    std::string stuffed;
    for (size_t i = 0; i < plain.size(); ++i) {
        stuffed += plain[i];
        if (plain[i] == '\xFF' && i + 1 < plain.size() && (plain[i + 1] == 0 || (plain[i + 1] & 0xE0) == 0xE0))
            stuffed += '\0';
    }
    folder_.makeFile("a.mp3", id3Tag(3, stuffed, 0x80) + mp3Frames());
    EXPECT_EQ(common(folder_.path("a.mp3"), "artwork"), kPicture);
    EXPECT_EQ(common(folder_.path("a.mp3"), "title"), "Title");

    // Version 2.4 does it in each frame, with the length of what comes out in front.
    const std::string content = id3Picture(kPicture);
    std::string stuffedContent;
    for (const char byte : content)
        stuffedContent += std::string(1, byte) + (byte == '\xFF' ? zeros(1) : "");
    folder_.makeFile(
        "b.mp3", id3Tag(4,
                        id3Frame(4, "APIC", syncSafe(static_cast<uint32_t>(content.size())) + stuffedContent, 0x0003) +
                            id3Text(4, "TIT2", "Title"),
                        0x80));
    EXPECT_EQ(common(folder_.path("b.mp3"), "artwork"), kPicture);
    EXPECT_EQ(common(folder_.path("b.mp3"), "title"), "Title");
}

TEST_F(FileTags, ThatOnlySayTheyAreStuffedWithZerosAreTakenAsTheyAre)
{
    folder_.makeFile("a.mp3", id3Tag(4, id3Frame(4, "APIC", id3Picture(kPicture)), 0x80));
    EXPECT_EQ(common(folder_.path("a.mp3"), "artwork"), kPicture);
}

TEST_F(FileTags, OfVersion24WithSizesOfEightBitsAreRead)
{
    const std::string picture = id3Picture(std::string(1000, 'p'));
    const std::string frames = "APIC" + bigEndian(picture.size(), 4) + zeros(2) + picture + id3Text(4, "TIT2", "Title");
    EXPECT_THAT(tagsOf(id3Tag(4, frames)), ElementsAre("org.id3/APIC=<1000>", "org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfCompressedFramesAreUnpacked)
{
    // "Title" as zlib stores it, without compression.
    const std::string content = zeros(1) + "Title";
    const std::string packed = std::string("\x78\x01\x01\x06\x00\xF9\xFF", 7) + content + "\x05\xE7\x02\x03";
    ASSERT_EQ(content.size(), 6U);
    EXPECT_THAT(tagsOf(id3Tag(3, id3Frame(3, "TIT2", bigEndian(6, 4) + packed, 0x0080) + id3Text(3, "TALB", "Album"))),
                ElementsAre("org.id3/TIT2=Title", "org.id3/TALB=Album"));
    EXPECT_THAT(tagsOf(id3Tag(4, id3Frame(4, "TIT2", syncSafe(6) + packed, 0x0009))),
                ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfAnEncryptedFrameAreThoseOfTheOthers)
{
    EXPECT_THAT(tagsOf(id3Tag(3, id3Frame(3, "TIT2", "secret", 0x0040) + id3Text(3, "TALB", "Album"))),
                ElementsAre("org.id3/TALB=Album"));
    EXPECT_THAT(tagsOf(id3Tag(4, id3Frame(4, "TIT2", "secret", 0x0004) + id3Text(4, "TALB", "Album"))),
                ElementsAre("org.id3/TALB=Album"));
}

TEST_F(FileTags, OfAnOldTagAreThoseThatTheNewTagHasNot)
{
    const std::string old = id3v1Tag("Old title", "Old artist   ",
                                     "Gr\xFC\xDF"
                                     "e");
    EXPECT_THAT(tagsOf(mp3Frames() + old),
                ElementsAre("org.id3/TIT2=Old title", "org.id3/TPE1=Old artist", "org.id3/TALB=Grüße"));
    EXPECT_THAT(tagsOf(id3Tag(3, id3Text(3, "TIT2", "New title")) + mp3Frames() + old),
                ElementsAre("org.id3/TIT2=New title", "org.id3/TPE1=Old artist", "org.id3/TALB=Grüße"));
    EXPECT_THAT(tagsOf(mp3Frames() + id3v1Tag("", "", "")), IsEmpty());
}

TEST_F(FileTags, AtTheEndOfAFileAreFoundByTheirFooter)
{
    const std::string frames = id3Text(4, "TIT2", "At the end");
    const std::string tag = id3Tag(4, frames, 0x10);
    const std::string footer = "3DI" + tag.substr(3, 7);
    EXPECT_THAT(tagsOf(mp3Frames() + tag + footer), ElementsAre("org.id3/TIT2=At the end"));
    EXPECT_THAT(tagsOf(mp3Frames() + tag + footer + id3v1Tag("Old", "Artist", "")),
                ElementsAre("org.id3/TIT2=At the end", "org.id3/TPE1=Artist"));
}

// Other files.

TEST_F(FileTags, OfWAVFilesAreInAChunkOfEitherName)
{
    const std::string tag = id3Tag(3, id3Text(3, "TIT2", "Title"));
    const std::string before = littleChunk("fmt ", zeros(16)) + littleChunk("data", zeros(7));
    EXPECT_THAT(tagsOf(wavWith(before + littleChunk("id3 ", tag))), ElementsAre("org.id3/TIT2=Title"));
    EXPECT_THAT(tagsOf(wavWith(littleChunk("ID3 ", tag) + before)), ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfWAVFilesBeyondFourGigabytesAreBehindTheSound)
{
    std::string file = "RF64" + bigEndian(0xFFFFFFFF, 4) + "WAVE";
    file += littleChunk("ds64", littleEndian(1000, 8) + littleEndian(64, 8) + zeros(12));
    file += "data" + bigEndian(0xFFFFFFFF, 4) + zeros(64);
    EXPECT_THAT(tagsOf(file + littleChunk("id3 ", id3Tag(3, id3Text(3, "TIT2", "Title")))),
                ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfWAVFilesAlsoStandInAListOfTexts)
{
    const std::string list = "INFO" +
                             littleChunk("INAM", "Gr\xFC\xDF"
                                                 "e" +
                                                     zeros(1)) +
                             littleChunk("ISFT", "Program") + littleChunk("IART", "Artist") +
                             littleChunk("IPRD", "Süß");
    EXPECT_THAT(tagsOf(wavWith(littleChunk("data", zeros(8)) + littleChunk("LIST", list))),
                ElementsAre("riff.info/INAM=Grüße", "riff.info/IART=Artist", "riff.info/IPRD=Süß"));
}

TEST_F(FileTags, OfAIFFFilesAreInAChunkOrInTexts)
{
    EXPECT_THAT(tagsOf(aiffWith(bigChunk("COMM", zeros(18)) +
                                bigChunk("NAME", "Gr\x9F\xA7"
                                                 "e") +
                                bigChunk("AUTH", "Artist") + bigChunk("SSND", zeros(9)) +
                                bigChunk("ID3 ", id3Tag(3, id3Text(3, "TIT2", "Title"))))),
                ElementsAre("aiff/NAME=Grüße", "aiff/AUTH=Artist", "org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfFLACFilesHaveAKeySpaceOfTheirOwn)
{
    const std::string comments =
        vorbisComments({"title=Title", "Artist=Grüße", "ARTIST=Second", "ALBUM=Album", "DATE=2026"});
    const std::string path =
        folder_.makeFile("a.flac", flacWith(flacBlock(4, comments) + flacBlock(6, flacPicture(kPicture))));
    EXPECT_THAT(
        tagsAt(path),
        ElementsAre("org.xiph.vorbis-comment/TITLE=Title", "org.xiph.vorbis-comment/ARTIST=Grüße",
                    "org.xiph.vorbis-comment/ARTIST=Second", "org.xiph.vorbis-comment/ALBUM=Album",
                    "org.xiph.vorbis-comment/METADATA_BLOCK_PICTURE=<" + std::to_string(kPicture.size()) + ">"));
    EXPECT_EQ(common(path, "artist"), "Grüße");
    EXPECT_EQ(common(path, "artwork"), kPicture);
}

TEST_F(FileTags, OfOggFilesAreThoseOfTheSoundAndMayCrossPages)
{
    const std::string comments = "OpusTags" + vorbisComments({"ARTIST=" + std::string(1000, 'a'), "TITLE=Title"});
    // 510 bytes of the packet on one page, between pages of a picture stream, and the rest on another.
    const std::string begun = oggPage(7, {comments.substr(0, 510)});
    std::string cut = begun;
    // Without the empty segment that ends a packet.
    cut[26] = 2;
    cut.erase(29, 1);
    const std::string file = oggPage(3, {"\x80theora"}, 2) + oggPage(7, {"OpusHead" + zeros(11)}, 2) +
                             oggPage(3, {"\x81theora" + vorbisComments({"TITLE=Picture"})}) + cut +
                             oggPage(3, {"more"}) + oggPage(7, {comments.substr(510)});
    EXPECT_THAT(tagsOf(file), ElementsAre("org.xiph.vorbis-comment/ARTIST=" + std::string(1000, 'a'),
                                          "org.xiph.vorbis-comment/TITLE=Title"));
}

TEST_F(FileTags, OfQuickTimesUserDataAreReadInTheirCharacters)
{
    const auto text = [](const std::string& key, const std::string& value, uint16_t language) {
        return box(key, bigEndian(value.size(), 2) + bigEndian(language, 2) + value);
    };
    const std::string items = text("\xA9nam",
                                   "Gr\x9F\xA7"
                                   "e",
                                   0) +
                              text("\xA9"
                                   "ART",
                                   "Süß", 0x55C4) +
                              text("\xA9"
                                   "alb",
                                   "\xFE\xFF" + utf16(u"Album", true), 0x55C4) +
                              text("\xA9"
                                   "fmt",
                                   "x", 0);
    EXPECT_THAT(tagsOf(box("ftyp", "qt  " + zeros(4)) + box("moov", box("udta", items + zeros(4)))),
                ElementsAre("udta/\xA9nam=Grüße",
                            "udta/\xA9"
                            "ART=Süß",
                            "udta/\xA9"
                            "alb=Album"));
}

TEST_F(FileTags, OfMoviesMayBeNumbersOrWideText)
{
    EXPECT_THAT(tagsOf(movieWithKeys({{"com.apple.quicktime.title", bigEndian(static_cast<uint8_t>(-2), 1), 21},
                                      {"com.apple.quicktime.title", bigEndian(0x3FC00000, 4), 23},
                                      {"com.apple.quicktime.title", utf16(u"Wide", true), 2},
                                      {"com.apple.quicktime.title", "bytes", 99}})),
                ElementsAre("mdta/com.apple.quicktime.title=number -2.000000",
                            "mdta/com.apple.quicktime.title=number 1.500000", "mdta/com.apple.quicktime.title=Wide",
                            "mdta/com.apple.quicktime.title=<5>"));
}

TEST_F(FileTags, DoNotDependOnTheNameOfTheFile)
{
    folder_.makeFile("sound.mp3", m4aWithItems(box("\xA9nam", dataBox("Title"))));
    EXPECT_EQ(common(folder_.path("sound.mp3"), "title"), "Title");
}

// Other programs.

TEST_F(FileTags, WrittenByFFmpegReadRight)
{
    struct Case {
        std::string name;
        std::string options;
        std::string key;
    };
    for (const Case& each :
         {Case{"23.mp3", "-id3v2_version 3", "org.id3/TIT2"}, Case{"24.mp3", "-id3v2_version 4", "org.id3/TIT2"},
          Case{"a.m4a", "", "itsk/\xA9nam"}, Case{"a.mov", "-c:a aac", "udta/\xA9nam"},
          Case{"keys.mov", "-c:a aac -movflags use_metadata_tags", "mdta/title"}, Case{"a.wav", "", "riff.info/INAM"},
          Case{"a.aiff", "-write_id3v2 1", "org.id3/TIT2"}, Case{"a.flac", "", "org.xiph.vorbis-comment/TITLE"},
          Case{"flac.ogg", "-c:a flac", "org.xiph.vorbis-comment/TITLE"}}) {
        SCOPED_TRACE(each.name);
        const std::string path = makeSound(each.name, each.options + kFFmpegTags);
        EXPECT_EQ(common(path, "title"), "Grüße aus Köln");
        EXPECT_EQ(common(path, "artist"), "Größte Künstler");
        EXPECT_EQ(common(path, "albumName"), "Süßes Album");
        EXPECT_THAT(tagsAt(path), testing::Contains(each.key + "=Grüße aus Köln"));
    }
}

TEST_F(FileTags, OfQuickTimeKeysWrittenByFFmpegReadRight)
{
    const std::string path = makeSound("a.mov", "-c:a aac -movflags use_metadata_tags "
                                                "-metadata com.apple.quicktime.title='Grüße' "
                                                "-metadata com.apple.quicktime.artist=Artist "
                                                "-metadata com.apple.quicktime.album=Album");
    EXPECT_THAT(tagsAt(path),
                ElementsAre("mdta/com.apple.quicktime.title=Grüße", "mdta/com.apple.quicktime.artist=Artist",
                            "mdta/com.apple.quicktime.album=Album"));
}

TEST_F(FileTags, WrittenByEyeD3ReadRight)
{
    folder_.makeFile("cover.jpg", kPicture);
    const auto tag = [&](const std::string& name, const std::string& options) {
        const std::string path = makeSound(name, "-id3v2_version 0 -write_id3v1 0");
        testsound::outputOf("LC_ALL=C.UTF-8 eyeD3 --no-color " + options + " -t 'Grüße' -a 'Künstler' -A 'Album' " +
                            testsound::quoted(path) + " 2>&1");
        return path;
    };
    const std::string more =
        " -b 'Band' --text-frame='TOPE:Original' --add-image=" + testsound::quoted(folder_.path("cover.jpg")) +
        ":FRONT_COVER";
    for (const std::string& path : {tag("23.mp3", "--to-v2.3 --encoding=utf16" + more),
                                    tag("24.mp3", "--to-v2.4 --encoding=utf8" + more), tag("1.mp3", "-1")}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(common(path, "title"), "Grüße");
        EXPECT_EQ(common(path, "artist"), "Künstler");
        EXPECT_EQ(common(path, "albumName"), "Album");
        if (path.ends_with("/1.mp3"))
            continue;
        EXPECT_EQ(common(path, "contributor"), "Original");
        EXPECT_EQ(common(path, "artwork"), kPicture);
    }
}

TEST_F(FileTags, WrittenByAtomicParsleyReadRight)
{
    // It knows pictures by their mark alone.
    const std::string picture = "\x89PNG\r\n\x1A\n picture";
    folder_.makeFile("cover.png", picture);
    const std::string path = makeSound("a.m4a");
    testsound::outputOf("LC_ALL=C.UTF-8 AtomicParsley " + testsound::quoted(path) +
                        " --title 'Grüße' --artist 'Künstler' --albumArtist 'Other' --album 'Album' --artwork " +
                        testsound::quoted(folder_.path("cover.png")) + " --overWrite 2>&1");
    EXPECT_EQ(common(path, "title"), "Grüße");
    EXPECT_EQ(common(path, "artist"), "Künstler");
    EXPECT_EQ(common(path, "albumName"), "Album");
    EXPECT_EQ(common(path, "artwork"), picture);
}

namespace {

template <typename File, typename... Arguments>
void tagWithTagLib(const std::string& path, Arguments... saveArguments)
{
    File file(path.c_str(), false);
    TagLib::PropertyMap properties;
    properties["TITLE"] = TagLib::String("Grüße", TagLib::String::UTF8);
    properties["ARTIST"] = TagLib::String("東京", TagLib::String::UTF8);
    properties["ALBUM"] = TagLib::String("Album");
    ASSERT_TRUE(file.setProperties(properties).isEmpty());
    ASSERT_TRUE(file.save(saveArguments...));
}

} // namespace

TEST_F(FileTags, WrittenByTagLibReadRight)
{
    const auto check = [&](const std::string& path) {
        SCOPED_TRACE(path);
        EXPECT_EQ(common(path, "title"), "Grüße");
        EXPECT_EQ(common(path, "artist"), "東京");
        EXPECT_EQ(common(path, "albumName"), "Album");
    };
    using TagLib::MPEG::File;
    for (const auto version : {TagLib::ID3v2::v3, TagLib::ID3v2::v4}) {
        const std::string path = makeSound(version == TagLib::ID3v2::v3 ? "3.mp3" : "4.mp3", "-id3v2_version 0");
        tagWithTagLib<File>(path, File::ID3v2, File::StripOthers, version);
        check(path);
    }
    const std::string wav = makeSound("a.wav", "-bitexact");
    tagWithTagLib<TagLib::RIFF::WAV::File>(wav, TagLib::RIFF::WAV::File::ID3v2);
    check(wav);
    const std::string aiff = makeSound("a.aiff");
    tagWithTagLib<TagLib::RIFF::AIFF::File>(aiff, TagLib::ID3v2::v4);
    check(aiff);
    const std::string m4a = makeSound("a.m4a");
    tagWithTagLib<TagLib::MP4::File>(m4a);
    check(m4a);
    const std::string flac = makeSound("a.flac");
    tagWithTagLib<TagLib::FLAC::File>(flac);
    check(flac);
    const std::string ogg = makeSound("a.ogg", "-c:a vorbis -strict experimental");
    tagWithTagLib<TagLib::Ogg::Vorbis::File>(ogg);
    check(ogg);
}

// Damage.

TEST_F(FileTags, OfWhatIsNoFileAreNone)
{
    EXPECT_THAT(tagsAt(folder_.path("absent.mp3")), IsEmpty());
    EXPECT_THAT(tagsAt(folder_.path()), IsEmpty());
    ASSERT_EQ(mkfifo(folder_.path("pipe.mp3").c_str(), 0600), 0);
    EXPECT_THAT(tagsAt(folder_.path("pipe.mp3")), IsEmpty());
    EXPECT_THAT(tagsOf(""), IsEmpty());
    EXPECT_THAT(tagsOf("ID3"), IsEmpty());
    EXPECT_THAT(tagsOf("plain text that says nothing"), IsEmpty());
}

TEST_F(FileTags, InFrontOfDamageAreStillRead)
{
    const std::string good = id3Text(3, "TIT2", "Title");
    EXPECT_THAT(tagsOf(id3Tag(3, good + "TALB" + bigEndian(0x7FFFFFFF, 4) + zeros(2) + "x")),
                ElementsAre("org.id3/TIT2=Title"));
    EXPECT_THAT(tagsOf(id3Tag(3, good + "\x01\x02\x03\x04" + zeros(20))), ElementsAre("org.id3/TIT2=Title"));
    const std::string cut = id3Tag(3, good + id3Text(3, "TALB", std::string(100, 'a')));
    EXPECT_THAT(tagsOf(cut.substr(0, cut.size() - 50)), ElementsAre("org.id3/TIT2=Title"));
    const std::string m4a =
        m4aWithItems(box("\xA9nam", dataBox("Title")) + bigEndian(0x7FFFFFFF, 4) + "covr" + zeros(8));
    EXPECT_THAT(tagsOf(m4a), ElementsAre("itsk/\xA9nam=Title"));
}

TEST_F(FileTags, ThatClaim256MegabytesAreReadAsFarAsTheyAreThere)
{
    const std::string frames = id3Text(3, "TIT2", "Title");
    const std::string tag = "ID3\x03" + zeros(2) + "\x7F\x7F\x7F\x7F" + frames + mp3Frames();
    EXPECT_THAT(tagsOf(tag), ElementsAre("org.id3/TIT2=Title"));

    // As long as it says, on a disk that has not the room for it.
    const std::string path = folder_.makeFile("large.mp3", tag);
    ASSERT_EQ(truncate(path.c_str(), 300'000'000), 0);
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    EXPECT_THAT(tagsAt(path), ElementsAre("org.id3/TIT2=Title"));
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 80 * 1024) << "kB";
}

TEST_F(FileTags, OfPicturesBeyondAllMeasureAreLeftOut)
{
    const std::string path = folder_.makeFile(
        "a.m4a", box("ftyp", "M4A " + zeros(4)) + bigEndian(200'000'000, 4) + "moov" + bigEndian(199'999'000, 4) +
                     "udta" + bigEndian(199'998'000, 4) + "meta" + zeros(4) + bigEndian(199'990'000, 4) + "ilst" +
                     box("\xA9nam", dataBox("Title")) + bigEndian(150'000'000, 4) + "covr" + bigEndian(149'000'000, 4) +
                     "data" + zeros(8));
    ASSERT_EQ(truncate(path.c_str(), 250'000'000), 0);
    EXPECT_THAT(tagsAt(path), ElementsAre("itsk/\xA9nam=Title"));
}

TEST_F(FileTags, OfACompressedFrameThatGrowsWithoutEndAreThoseOfTheOthers)
{
    // 100 MB of zeros in 100 kB, made as any program makes it.
    GZlibCompressor* packer = g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB, 9);
    std::string packed;
    const std::string input(1 << 20, '\0');
    std::string buffer(1 << 20, '\0');
    for (int i = 0; i <= 100; ++i) {
        gsize begin = 0;
        for (;;) {
            gsize consumed = 0;
            gsize made = 0;
            const auto flags = i == 100 ? G_CONVERTER_INPUT_AT_END : G_CONVERTER_NO_FLAGS;
            const auto state = g_converter_convert(G_CONVERTER(packer), input.data() + begin, input.size() - begin,
                                                   buffer.data(), buffer.size(), flags, &consumed, &made, nullptr);
            ASSERT_NE(state, G_CONVERTER_ERROR);
            packed.append(buffer, 0, made);
            begin += consumed;
            if (state == G_CONVERTER_FINISHED || (i < 100 && begin == input.size()))
                break;
        }
    }
    g_object_unref(packer);
    ASSERT_LT(packed.size(), 200'000U);
    EXPECT_THAT(
        tagsOf(id3Tag(3, id3Frame(3, "APIC", bigEndian(100, 4) + packed, 0x0080) + id3Text(3, "TIT2", "Title"))),
        ElementsAre("org.id3/TIT2=Title"));
}

TEST_F(FileTags, OfBoxesThatLeadNowhereEnd)
{
    // Boxes that say they are empty, or reach to the end, or into themselves, or are larger than all.
    for (const uint32_t size : {0U, 1U, 2U, 7U, 8U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        std::string boxes;
        for (int i = 0; i < 1000; ++i)
            boxes += bigEndian(size, 4) + (i % 2 == 0 ? "moov" : "udta");
        EXPECT_THAT(tagsOf(box("ftyp", "M4A " + zeros(4)) + boxes), IsEmpty()) << size;
        EXPECT_THAT(tagsOf(m4aWithItems(boxes)), IsEmpty()) << size;
    }
}

TEST_F(FileTags, OfBoxesInBoxesWithoutEndAreNone)
{
    constexpr size_t kDepth = 200'000;
    for (const std::string type : {"moov", "udta", "meta", "ilst"}) {
        std::string nested = box("ftyp", "M4A " + zeros(4));
        for (size_t i = 0; i < kDepth; ++i)
            nested += bigEndian((kDepth - i) * 8, 4) + type;
        EXPECT_THAT(tagsOf(nested), IsEmpty());
    }
}

TEST_F(FileTags, BehindAMillionBoxesAreNotLookedFor)
{
    const std::string empty = box("udta", "");
    const std::string tags =
        box("udta", box("meta", zeros(4) + handlerBox("mdir") + box("ilst", box("\xA9nam", dataBox("Title")))));
    for (const auto& [count, expected] : {std::pair{1000, 1U}, std::pair{1 << 20, 0U}}) {
        std::string boxes;
        for (int i = 0; i < count; ++i)
            boxes += empty;
        EXPECT_EQ(tagsOf(box("ftyp", "M4A " + zeros(4)) + box("moov", boxes + tags)).size(), expected) << count;
    }
}

TEST_F(FileTags, OfMutatedFilesNeverTakeTheProgramAlong)
{
    const std::string picture = id3Picture(kPicture);
    const std::string id3 = id3Text(3, "TIT2", "Title") +
                            id3Frame(3, "TPE1", "\x01\xFF\xFE" + utf16(u"Artist", false)) +
                            id3Frame(3, "APIC", picture);
    const std::string comments =
        vorbisComments({"TITLE=Title", "METADATA_BLOCK_PICTURE=AAAAAwAAAAA=", "ARTIST=Artist"});
    const std::vector<std::string> seeds = {
        id3Tag(2, id3Text(2, "TT2", "Title") + id3Frame(2, "PIC", zeros(1) + "JPG" + "\x03" + zeros(1) + kPicture)),
        id3Tag(3, id3) + mp3Frames(1) + id3v1Tag("Title", "Artist", "Album"),
        id3Tag(3, bigEndian(6, 4) + zeros(6) + id3, 0xC0),
        id3Tag(4,
               id3Text(4, "TIT2", "Title") + id3Frame(4, "APIC", syncSafe(20) + picture, 0x0003) +
                   id3Frame(4, "TALB",
                            syncSafe(6) + std::string("\x78\x01\x01\x06\x00\xF9\xFF", 7) + zeros(1) + "Title" +
                                "\x05\xE7\x02\x03",
                            0x0009),
               0x80),
        wavWith(littleChunk("fmt ", zeros(16)) + littleChunk("LIST", "INFO" + littleChunk("INAM", "Title")) +
                littleChunk("data", zeros(16)) + littleChunk("id3 ", id3Tag(3, id3))),
        aiffWith(bigChunk("NAME", "Title") + bigChunk("SSND", zeros(16)) + bigChunk("ID3 ", id3Tag(3, id3))),
        m4aWithItems(box("\xA9nam", dataBox("Title")) + box("covr", dataBox(kPicture, 13)) +
                     box("\xA9"
                         "ART",
                         dataBox(utf16(u"Artist", true), 2))),
        movieWithKeys({{"com.apple.quicktime.title", "Title"},
                       {"com.apple.quicktime.artwork", kPicture, 14},
                       {"com.apple.quicktime.album", bigEndian(12, 4), 21}}),
        box("ftyp", "qt  " + zeros(4)) + box("moov", box("udta", box("\xA9nam", bigEndian(5, 2) + zeros(2) + "Title")) +
                                                         quickTimeMeta({{"com.apple.quicktime.artist", "Artist"}})),
        flacWith(flacBlock(4, comments) + flacBlock(6, flacPicture(kPicture))),
        oggPage(1, {"\x01vorbis" + zeros(23)}, 2) + oggPage(1, {"\x03vorbis" + comments, "\x05vorbis"}),
        oggPage(1,
                {"\x7F"
                 "FLAC" +
                 zeros(40)},
                2) +
            oggPage(1, {flacBlock(4, comments), flacBlock(6, flacPicture(kPicture), true)}),
    };
    for (const std::string& seed : seeds)
        ASSERT_THAT(tagsOf(seed), testing::Contains(testing::HasSubstr("=Title"))) << seed.substr(0, 12);

    // The same on every run; other ones with --gtest_shuffle.
    std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    const auto below = [&](size_t limit) { return static_cast<size_t>(random()) % limit; };
    constexpr int kMutationsOfEach = 500;
    // A file in memory, as thousands are made.
    const FileDescriptor memory(memfd_create("mutated", MFD_CLOEXEC));
    const NSURL url = NSURL::fileURLWithPath("/proc/self/fd/" + std::to_string(memory.get()), false);
    for (const std::string& seed : seeds)
        for (int i = 0; i < kMutationsOfEach; ++i) {
            std::string file = seed;
            for (size_t change = 0; change <= below(6); ++change) {
                const size_t place = below(file.size());
                switch (below(6)) {
                case 0:
                    file[place] = static_cast<char>(random());
                    break;
                case 1:
                    file[place] = static_cast<char>(file[place] ^ 1 << below(8));
                    break;
                case 2:
                    file.replace(place, 4, below(2) == 0 ? std::string(4, '\xFF') : bigEndian(below(64), 4));
                    break;
                case 3:
                    file.resize(place + 1);
                    break;
                case 4:
                    file.insert(place, file.substr(below(file.size()), below(64)));
                    break;
                default:
                    file.erase(place, below(32));
                    file += '\0';
                    break;
                }
            }
            ASSERT_EQ(ftruncate(memory.get(), 0), 0);
            ASSERT_EQ(pwrite(memory.get(), file.data(), file.size(), 0), static_cast<ssize_t>(file.size()));
            size_t bytes = 0;
            for (const AVMetadataItemPtr& item : readFileTags(url)) {
                EXPECT_FALSE(item->commonKey.empty());
                bytes += item->dataValue() ? item->dataValue()->size() : 0;
            }
            EXPECT_LE(bytes, 10 * file.size());
        }
}
