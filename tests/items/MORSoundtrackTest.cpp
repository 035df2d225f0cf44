#include "items/MORSoundtrack.h"

#include "platform/archive/NSKeyedArchiver.h"
#include "platform/media/CMTime.h"
#include "tests/items/ReferenceReader.h"
#include "tests/support/ArchiveBytes.h"
#include "tests/support/CommaLocale.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace platform;
using namespace archive_bytes;

namespace {

const NSURL kDocument = NSURL::fileURLWithPath("/Volumes/B/Doc.x", true);
constexpr SoundtrackSelection kSelection{12.5, 42.5, 30};

MORSoundtrackPtr soundtrack(const std::string& path, SoundtrackSelection selection = kSelection)
{
    return MORSoundtrack::soundtrackWithURL(NSURL::fileURLWithPath(path, false), selection);
}

NSData saved(const std::vector<std::pair<std::string, Node>>& entries)
{
    return archive(dictionaryObjects(entries));
}

std::vector<std::pair<std::string, Node>> entriesOf(std::string_view path, std::string_view selection = "{1, 2}")
{
    return {{"version", text("1.0")},
            {"soundtrackURL", text(path)},
            {"selection", text(selection)},
            {"originalPath", text(path)}};
}

MORSoundtrackPtr load(const NSData& data)
{
    return MORSoundtrack::soundtrackWithSaveData(data, kDocument);
}

NSCoder coderOf(std::string_view selection)
{
    NSCoder coder;
    coder.encodeObject(NSData{1}, "soundtrackURL");
    coder.encodeObject(std::string(selection), "selection");
    coder.encodeObject("/a/song.mp3", "originalPath");
    return coder;
}

SoundtrackSelection parsed(std::string_view selection)
{
    const auto item = MORSoundtrack::initWithCoder(coderOf(selection));
    EXPECT_TRUE(item) << selection;
    return item ? item->selection() : SoundtrackSelection{-1, -1, -1};
}

/// A sound file of silence: one channel of 16 bits at 8000 Hz.
std::string makeSound(const TemporaryFolder& folder, std::string_view name, uint32_t seconds)
{
    const auto little = [](uint32_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i)
            text += static_cast<char>(value >> (8 * i));
        return text;
    };
    const uint32_t bytes = seconds * 16000;
    std::string file = "RIFF";
    file += little(36 + bytes, 4) + "WAVEfmt " + little(16, 4) + little(1, 2) + little(1, 2) + little(8000, 4) +
            little(16000, 4) + little(2, 2) + little(16, 2) + "data" + little(bytes, 4);
    return folder.makeFile(name, file.append(bytes, '\0'));
}

/// The soundtrack example, object for object as the platform writes it.
NSData platformArchive()
{
    return archive({
        text("$null"),
        dictionary({{"NS.keys", uids({2, 3, 4, 5})}, {"NS.objects", uids({6, 7, 8, 7})}, {"$class", uid(9)}}),
        text("version"),
        text("soundtrackURL"),
        text("selection"),
        text("originalPath"),
        text("1.0"),
        text("/Users/a/song.mp3"),
        text("{12.500000, 42.500000}"),
        classRecord({"NSDictionary", "NSObject"}),
    });
}

class SpecialSoundtrack : public MORSoundtrack {
public:
    int ownValue = 7;
};

} // namespace

TEST(MORSoundtrack, IsMadeOfLocationAndSelection)
{
    const auto item = soundtrack("/a/song.mp3");
    EXPECT_EQ(item->soundtrackURL(), NSURL::fileURLWithPath("/a/song.mp3", false));
    EXPECT_EQ(item->_originalPath(), "/a/song.mp3");
    EXPECT_EQ(item->selection(), kSelection);
    EXPECT_TRUE(MORSoundtrack::supportsSecureCoding());
    EXPECT_EQ(item->className(), "MORSoundtrack");
    EXPECT_EQ(MORSoundtrack().soundtrackURL(), std::nullopt);
    EXPECT_EQ(MORSoundtrack()._originalPath(), std::nullopt);
    EXPECT_EQ(MORSoundtrack().selection(), SoundtrackSelection{});
}

TEST(MORSoundtrack, WritesItsSelectionWithSixDecimalsAndReadsItBack)
{
    const TemporaryFolder folder;
    const auto item = soundtrack(folder.makeFile("song.mp3"));
    NSCoder coder;
    item->encodeWithCoder(coder);
    EXPECT_EQ(coder.values().at("selection"), CodedValue("{12.500000, 42.500000}"));
    EXPECT_EQ(MORSoundtrack::initWithCoder(coder)->selection(), kSelection);

    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(item->saveData().value());
    ASSERT_TRUE(root && root->as<NSDictionary>());
    EXPECT_EQ(*root->as<NSDictionary>()->objectForKey("selection")->as<std::string>(), "{12.500000, 42.500000}");
    EXPECT_EQ(load(soundtrack("/a/Resources/song.mp3")->saveData().value())->selection(), kSelection);
}

TEST(MORSoundtrack, ReadsTheShortestSelection)
{
    EXPECT_EQ(parsed("{1, 2}"), (SoundtrackSelection{1, 2, 1}));
}

TEST(MORSoundtrack, ReadsASelectionWithoutABlankAsNone)
{
    EXPECT_EQ(parsed("{1,2}"), SoundtrackSelection{});
    EXPECT_EQ(parsed("{10,20}"), SoundtrackSelection{});
}

TEST(MORSoundtrack, ReadsASelectionWithoutAStartAsNone)
{
    EXPECT_EQ(parsed("{, 2}"), SoundtrackSelection{});
    EXPECT_EQ(parsed("{, 222}"), SoundtrackSelection{});
    EXPECT_EQ(parsed("{111, }"), SoundtrackSelection{});
}

TEST(MORSoundtrack, ReadsSelectionsLeniently)
{
    struct Row {
        std::string_view text;
        SoundtrackSelection selection;
    };
    for (const Row& row : {
             Row{"", {}},
             Row{"{12}", {}},
             Row{"1.0, 2.0", {}},
             Row{"{1.0, 2.0", {}},
             Row{"1.0, 2.0}", {}},
             Row{"{a, b}", {}},
             Row{"{5, b}", {5, 0, -5}},
             Row{"{5 x, 7 y}", {5, 7, 2}},
             Row{"{{1, 2}}", {1, 2, 1}},
             Row{"}{1, 2}{", {1, 2, 1}},
             Row{"{1, 2, 3}", {1, 2, 1}},
             Row{"{30, 10}", {30, 10, -20}},
             Row{"{-51919.000000, -51919.000000}", {-51919, -51919, 0}},
             Row{"{nan, inf}", {}},
             Row{"{1e2, 0x10}", {100, 0, -100}},
             Row{"{😀, 2}", {0, 2, 2}},
             Row{"{, }{", {}},
             Row{"{}{}, ", {}},
         })
        EXPECT_EQ(parsed(row.text), row.selection) << row.text;
}

TEST(MORSoundtrack, CountsTheLengthOfASelectionInUTF16)
{
    // Six bytes but five units; six units in nine bytes.
    EXPECT_EQ(parsed("{, é}"), SoundtrackSelection{});
    EXPECT_EQ(parsed("{1, é}"), (SoundtrackSelection{1, 0, -1}));
}

TEST(MORSoundtrack, LosesTheMarkerInItsTextForm)
{
    const TemporaryFolder folder;
    NSCoder coder;
    soundtrack(folder.makeFile("song.mp3"), kNoSelection)->encodeWithCoder(coder);
    EXPECT_EQ(MORSoundtrack::initWithCoder(coder)->selection(), (SoundtrackSelection{-51919, -51919, 0}));
}

TEST(MORSoundtrack, FindsItsFileInTheDocument)
{
    const auto item = load(saved(entriesOf("/Users/a/Old Document/Resources/song.mp3")));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->soundtrackURL(), kDocument.URLByAppendingPathComponent("Resources/song.mp3"));
    EXPECT_EQ(item->soundtrackURL()->path(), "/Volumes/B/Doc.x/Resources/song.mp3");
    EXPECT_EQ(item->_originalPath(), "/Users/a/Old Document/Resources/song.mp3");
}

TEST(MORSoundtrack, KeepsOnlyTheTailFromTheLastResources)
{
    EXPECT_EQ(load(saved(entriesOf("/a/Resources/b/Resources/c/song.mp3")))->soundtrackURL()->path(),
              "/Volumes/B/Doc.x/Resources/c/song.mp3");
}

TEST(MORSoundtrack, RefusesEveryVersionButItsOwn)
{
    for (const Node& version : {text("1.1"), text("1.0 "), text("1"), text(""), integer(1)}) {
        auto entries = entriesOf("/Resources/song.mp3");
        entries[0].second = version;
        NSError error;
        EXPECT_FALSE(MORSoundtrack::soundtrackWithSaveData(saved(entries), kDocument, &error)) << version.bytes;
        EXPECT_EQ(error, NSError{});
    }
}

TEST(MORSoundtrack, RefusesAMissingVersion)
{
    auto entries = entriesOf("/Resources/song.mp3");
    EXPECT_TRUE(load(saved(entries)));
    entries.erase(entries.begin());
    EXPECT_FALSE(load(saved(entries)));
}

TEST(MORSoundtrack, RefusesAPathWithoutResources)
{
    EXPECT_FALSE(load(saved(entriesOf("/Users/a/song.mp3"))));
    auto entries = entriesOf("/Resources/song.mp3");
    entries.erase(entries.begin() + 1);
    EXPECT_FALSE(load(saved(entries)));
}

TEST(MORSoundtrack, IsNoItemWithoutAnArchive)
{
    EXPECT_FALSE(MORSoundtrack::soundtrackWithSaveData(std::nullopt, kDocument));
    NSError error;
    EXPECT_FALSE(MORSoundtrack::soundtrackWithSaveData(NSData{1, 2}, kDocument, &error));
    EXPECT_EQ(error.code, kNSCoderReadCorruptError);
}

TEST(MORSoundtrack, LoadsWithoutSelectionOrOriginalPath)
{
    const auto item = load(saved({{"version", text("1.0")}, {"soundtrackURL", text("/a/Resources/song.mp3")}}));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->selection(), SoundtrackSelection{});
    EXPECT_EQ(item->_originalPath(), std::nullopt);
}

TEST(MORSoundtrack, RefusesASavedValueOfAnotherClass)
{
    for (size_t index : {2, 3}) {
        auto entries = entriesOf("/Resources/song.mp3");
        entries[index].second = integer(5);
        NSError error;
        EXPECT_FALSE(MORSoundtrack::soundtrackWithSaveData(saved(entries), kDocument, &error));
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
    }
}

TEST(MORSoundtrack, ReadsAndWritesThePlatformsArchive)
{
    ASSERT_EQ(platformArchive().size(), 417u);
    const NSData ours = soundtrack("/Users/a/song.mp3")->saveData().value();
    // Ours may share more inside; what it says is the same.
    EXPECT_LE(ours.size(), 417u);
    EXPECT_EQ(readByReference(ours), readByReference(platformArchive()));
    EXPECT_EQ(readByReference(ours),
              "NSDictionary<NSObject {originalPath: '/Users/a/song.mp3', selection: '{12.500000, 42.500000}', "
              "soundtrackURL: '/Users/a/song.mp3', version: '1.0'}");
    // Its path is not below a document's resources.
    EXPECT_FALSE(load(platformArchive()));
}

TEST(MORSoundtrack, CannotBeSavedWithoutALocation)
{
    MORSoundtrack item;
    item.set_originalPath("/a");
    NSError error;
    EXPECT_FALSE(item.saveData(&error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_EQ(error.localizedDescription, "The soundtrack cannot be saved: it has no location");
}

TEST(MORSoundtrack, CannotBeSavedWithoutAnOriginalPath)
{
    MORSoundtrack item;
    item.setSoundtrackURL(NSURL::fileURLWithPath("/a", false));
    NSError error;
    EXPECT_FALSE(item.saveData(&error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_EQ(error.localizedDescription, "The soundtrack cannot be saved: \"/a\" has no original path");
}

TEST(MORSoundtrack, CrossesTheConnection)
{
    const TemporaryFolder folder;
    const auto item = soundtrack(folder.makeFile("song.mp3"));
    NSCoder coder;
    item->encodeWithCoder(coder);
    EXPECT_EQ(coder.values().size(), 3u);
    const auto received = MORSoundtrack::initWithCoder(coder);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->soundtrackURL(), item->soundtrackURL());
    EXPECT_EQ(received->_originalPath(), item->_originalPath());
    EXPECT_EQ(received->selection(), item->selection());
}

TEST(MORSoundtrack, WithoutItsOriginalPathDecodesToNoObject)
{
    for (const char* missing : {"originalPath", "selection", "soundtrackURL"}) {
        const NSCoder whole = coderOf("{1, 2}");
        NSCoder coder;
        for (const auto& [key, value] : whole.values()) {
            if (key != missing)
                coder.encodeObject(value, key);
        }
        NSError error;
        EXPECT_FALSE(MORSoundtrack::initWithCoder(coder, &error)) << missing;
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
        EXPECT_EQ(error.localizedDescription, "The value for key \"" + std::string(missing) + "\" is missing");
        EXPECT_TRUE(MORSoundtrack::initWithCoder(whole));
    }
}

TEST(MORSoundtrack, RefusesACodedValueOfAnotherClass)
{
    for (const char* key : {"originalPath", "selection", "soundtrackURL"}) {
        NSCoder coder = coderOf("{1, 2}");
        coder.encodeObject(NSNumber(true), key);
        NSError error;
        EXPECT_FALSE(MORSoundtrack::initWithCoder(coder, &error)) << key;
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
        EXPECT_NE(error.localizedDescription.find(key), std::string::npos);
        EXPECT_EQ(error.localizedDescription.find("missing"), std::string::npos) << "it is there";
    }
}

TEST(MORSoundtrack, IsAnItemThoughItsBookmarkLeadsNowhere)
{
    const auto item = MORSoundtrack::initWithCoder(coderOf("{1, 2}"));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->soundtrackURL(), std::nullopt);
    EXPECT_EQ(item->_originalPath(), "/a/song.mp3");
}

TEST(MORSoundtrack, WritesItsSelectionAlikeInEveryLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(comma) << "localedef could not make a locale";
    const auto loaded = load(soundtrack("/a/Resources/song.mp3", {0.25, 1.5, 1.25})->saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->selection(), (SoundtrackSelection{0.25, 1.5, 1.25}));
}

TEST(MORSoundtrack, KeepsANameThatIsNotUTF8)
{
    const auto item = soundtrack("/a/Resources/\xFF.mp3");
    const auto loaded = load(item->saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->soundtrackURL()->path(), "/Volumes/B/Doc.x/Resources/\xFF.mp3");
    // Two such files must not be taken for one.
    const auto other = load(soundtrack("/a/Resources/\xFE.mp3")->saveData().value());
    EXPECT_NE(loaded->_originalPath(), other->_originalPath());
}

TEST(MORSoundtrack, LoadsASubclassAsItself)
{
    const auto item = SpecialSoundtrack::soundtrackWithSaveData<SpecialSoundtrack>(
        saved(entriesOf("/Resources/song.mp3")), kDocument);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->ownValue, 7);
    EXPECT_EQ(MORSoundtrack::initWithCoder<SpecialSoundtrack>(coderOf("{1, 2}"))->ownValue, 7);
}

TEST(MORSoundtrack, LastsAsLongAsItsSelectionWithoutOpeningTheFile)
{
    EXPECT_EQ(soundtrack("/no/such/song.mp3", {3, 10, 7})->duration(), 7);
    EXPECT_EQ(soundtrack("/no/such/song.mp3", {10, 3, -7})->duration(), -7);
    EXPECT_EQ(soundtrack("/no/such/song.mp3", {-51919, -51919, 0})->duration(), 0);
}

TEST(MORSoundtrack, LastsAsLongAsItsFileWithoutASelection)
{
    const TemporaryFolder folder;
    const std::string path = makeSound(folder, "song.wav", 3);
    EXPECT_EQ(soundtrack(path, {0, 0, 0})->duration(), 3);
    EXPECT_EQ(soundtrack(path, kNoSelection)->duration(), 3);
}

TEST(MORSoundtrack, IsMeasuredOnceAPath)
{
    const TemporaryFolder folder;
    const std::string path = makeSound(folder, "song.wav", 3);
    EXPECT_EQ(soundtrack(path, kNoSelection)->duration(), 3);
    makeSound(folder, "song.wav", 5);
    EXPECT_EQ(soundtrack(path, kNoSelection)->duration(), 3);

    const auto renamed = soundtrack(path, kNoSelection);
    renamed->set_originalPath("another key");
    EXPECT_EQ(renamed->duration(), 5);
}

TEST(MORSoundtrack, WithoutALocationLastsNoTime)
{
    MORSoundtrack item;
    EXPECT_EQ(item.duration(), 0);
    EXPECT_EQ(item.asset(), nullptr);
}

TEST(MORSoundtrack, SharesOneAssetPerFile)
{
    const TemporaryFolder folder;
    const std::string path = makeSound(folder, "song.wav", 2);
    const auto first = soundtrack(path)->asset();
    ASSERT_TRUE(first);
    EXPECT_EQ(soundtrack(path)->asset(), first);
    EXPECT_EQ(CMTimeGetSeconds(first->duration()), 2);
    EXPECT_NE(soundtrack(makeSound(folder, "other.wav", 2))->asset(), first);
}

TEST(MORSoundtrack, LetsGoOfTheAssetsThatWereNotAskedForTheLongest)
{
    const std::weak_ptr<AVURLAsset> used = soundtrack("/sounds/used.wav")->asset();
    const std::weak_ptr<AVURLAsset> unused = soundtrack("/sounds/unused.wav")->asset();
    for (int i = 0; i < 100; ++i) {
        (void)soundtrack("/sounds/" + std::to_string(i) + ".wav")->asset();
        (void)soundtrack("/sounds/used.wav")->asset();
    }
    EXPECT_TRUE(unused.expired());
    EXPECT_FALSE(used.expired());
}

TEST(MORSoundtrack, ItsAssetIsMeasuredPreciselyAndItsDurationByTheBitRate)
{
    const TemporaryFolder folder;
    // Silent, then loud, and without an index: the bit rate of the start says nothing of the whole.
    testsound::writeWav(folder.path("song.wav"), testsound::makeSound(44100, 1, 441000, [](size_t frame, int) {
                            return frame < 220500 ? 0.0 : std::sin(double(frame) * double(frame) * 1e-6) * 0.9;
                        }));
    const std::string path = folder.path("song.mp3");
    testsound::convertWithFFmpeg(folder.path("song.wav"), "-c:a libmp3lame -q:a 2 -write_xing 0", path);
    const auto item = soundtrack(path, kNoSelection);
    EXPECT_EQ(item->asset()->duration().value, testsound::decodeWithFFmpeg(path).frames());
    EXPECT_EQ(item->duration(), CMTimeGetSeconds(AVURLAsset(NSURL::fileURLWithPath(path)).duration()));
    EXPECT_NE(item->duration(), CMTimeGetSeconds(item->asset()->duration()));
}

TEST(MORSoundtrack, SurvivesDamageToItsSavedForm)
{
    const NSData whole = soundtrack("/a/Resources/song.mp3")->saveData().value();
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(load(NSData(whole.begin(), whole.begin() + static_cast<long>(length)))) << length;

    std::mt19937 random(4);
    int refused = 0;
    constexpr int kRounds = 4000;
    for (int i = 0; i < kRounds; ++i) {
        NSData damaged = whole;
        const size_t at = random() % damaged.size();
        if (i % 2 == 0)
            damaged[at] ^= static_cast<uint8_t>(1 << random() % 8);
        else
            damaged.insert(damaged.begin() + static_cast<long>(at), static_cast<uint8_t>(random()));
        const auto loaded = load(damaged);
        refused += !loaded;
        // What still loads is a soundtrack of the document all the same.
        if (loaded) {
            EXPECT_TRUE(loaded->soundtrackURL()->path().starts_with("/Volumes/B/Doc.x/Resources/"));
        }
    }
    EXPECT_GT(refused, kRounds / 2);
}
